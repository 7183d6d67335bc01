// The session's input, written to a file that lumio-replay plays: one line per event, in the order in which the program
// got to them. lumio-replay(1) describes the format.
#pragma once

#include <PvrServiceSubscriber.h>
#include <TVServiceSubscriber.h>

#include <string>

#include "clock.h"
#include "subscriptions.h"

namespace lumio::trace {

// The main loop is idle. The first time after the library was installed is where the times are counted from.
void RecordIdle();

// The main loop has been told to end, or the program ends without that. The first time counts.
void RecordEnd();

// A key; returns its number, counted from 1.
int RecordKey(const std::string &key, bool press, const std::string &device, Nanoseconds posted);
// It found the factory aging mode on.
void RecordAging(int key);
// One of its handlers, counted from 0, took so long that it may matter.
void RecordHold(int key, int handler, Nanoseconds duration);
// What is no callback of the library kept the main loop.
void RecordSilence(Nanoseconds duration);
// The service refused a subscription: the call of this name, counted from 1.
void RecordRefusal(const char *call, int number);
// A device was plugged in or out.
void RecordPlug(const std::string &device, bool in);

// The program sets a banner, or announces a state.
void RecordBanner(int banner, int state);
void RecordState(int state);

// What the services told. Nothing but the desktop platform tells all of it in a form that is known.
void RecordNotification(const TSignalEvent &event);
void RecordNotification(const TProgramEvent &event);
void RecordNotification(const TPesEvent &event);
void RecordNotification(const TCaptionEvent &event);
void RecordSection(bool flag, unsigned short size, const unsigned char *data, int stream, const std::string &module);
void RecordDsm(const TSDsmMessage &message, const SubscriptionName &session);
void RecordPvrResult(const ps_result_thirdpart &result);
void RecordPvrState(pvr_state_e state);

} // namespace lumio::trace
