// Writes the session's input to a file that lumio-replay plays: one line per event, in the order in which the program
// reached them. lumio-replay(1) describes the format.
#pragma once

#include <PvrServiceSubscriber.h>
#include <TVServiceSubscriber.h>

#include <string>

#include "clock.h"
#include "subscriptions.h"

namespace lumio::trace {

// Call it when the main loop is idle. Times count from the first call after the library was installed.
void RecordIdle();

// Call it when the main loop is asked to end, or the program ends without that. Only the first call counts.
void RecordEnd();

// Records a key. Returns its number, counted from 1.
int RecordKey(const std::string &key, bool press, const std::string &device, Nanoseconds posted);
// Records that the key found the factory aging mode on.
void RecordAging(int key);
// Records that one of its handlers, counted from 0, took so long that it may matter.
void RecordHold(int key, int handler, Nanoseconds duration);
// Records that something other than a callback of the library kept the main loop.
void RecordSilence(Nanoseconds duration);
// Records that the service refused a subscription: the call of this name, counted from 1.
void RecordRefusal(const char *call, int number);
// Records that a device was plugged in or out.
void RecordPlug(const std::string &device, bool in);

// Records that the program sets a banner, or announces a state.
void RecordBanner(int banner, int state);
void RecordState(int state);

// Record the notifications of the services. Only on the desktop is the form of all of them known.
void RecordNotification(const TSignalEvent &event);
void RecordNotification(const TProgramEvent &event);
void RecordNotification(const TPesEvent &event);
void RecordNotification(const TCaptionEvent &event);
void RecordSection(bool flag, unsigned short size, const unsigned char *data, int stream, const std::string &module);
void RecordDsm(const TSDsmMessage &message, const SubscriptionName &session);
void RecordPvrResult(const ps_result_thirdpart &result);
void RecordPvrState(pvr_state_e state);

} // namespace lumio::trace
