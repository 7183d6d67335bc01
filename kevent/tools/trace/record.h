// Writes the session's input to a file that lumio-replay plays: one line per event, in the order in which the program
// reached them. lumio-replay(1) describes the format.
#pragma once

#include <PvrServiceSubscriber.h>
#include <TVServiceSubscriber.h>

#include <string>

#include "clock.h"
#include "subscriptions.h"

namespace lumio::trace {

constexpr Nanoseconds kHold = kMillisecond; // callbacks that take less are not recorded

bool IsRecording();

// Call it when the program starts.
void BeginRecord();

// Call it when the main loop is idle. Times count from the first call after the library was installed. Returns whether
// this is that call.
bool BeginTimes();

// Call it when the library learns that the main loop is idle.
void RecordIdle();

bool HasRecordBegun();

// Call it when the main loop is asked to end, or the program ends without that. Only the first call counts.
void RecordEnd();

// Records the device that has sent keys to the X server before the recording; empty if none has.
void RecordDevice(const std::string &device);

// Records a key, the stall that it waited for (see work.h), when it was sent, and how late it came by its time stamp.
// Returns its number, counted from 1.
int RecordKey(const std::string &key, bool press, const std::string &device, int stall, Nanoseconds posted,
              Nanoseconds late);
// Records that the key found the factory aging mode on.
void RecordAging(int key);

// Counts a callback on the main loop. Returns its number, counted from 1; 0 before the times begin.
int CountCallback();
// Records that this callback began or ended so late that it may matter, and how long it kept the main loop itself.
void RecordHold(int callback, Nanoseconds begin, Nanoseconds end, Nanoseconds own);
// Records that something other than a callback of the library kept the main loop.
void RecordSilence(Nanoseconds duration);
// Records that a timer of the program ended, or that the main loop ran a call that a thread of the program had handed
// over; see own_work.h.
void RecordTimer(const std::string &function, int number);
void RecordCall(const std::string &function);
// Records that the service refused a subscription: the call of this name, counted from 1.
void RecordRefusal(const char *call, int number);
// Records that a device was plugged in or out.
void RecordPlug(const std::string &device, bool in);

// Records the word of the banners that are shown before the program changes any.
void RecordBanners(int word);
// Records that the program sets a banner, or announces a state.
void RecordBanner(int banner, int state);
void RecordState(int state);

// A section as a service's thread delivers it.
struct SectionEvent {
  SubscriptionName subscription; // its number is the stream
  bool flag;
  const unsigned char *bytes;
  unsigned short size;
};

// Returns a notification as the recording has it, without its times; empty if its form is not known, as on a
// television.
std::string TextOf(const TSignalEvent &event);
std::string TextOf(const TProgramEvent &event);
std::string TextOf(const TPesEvent &event);
std::string TextOf(const TCaptionEvent &event);
std::string TextOf(const SectionEvent &event);
std::string TextOf(const TSDsmMessage &message);
std::string TextOf(const ps_result_thirdpart &result);
std::string TextOf(pvr_state_e state);

// Records a notification that the main loop delivers, and when it was sent.
void RecordDelivery(const std::string &text, Nanoseconds posted);
// Records a notification that a service's thread delivers.
void RecordService(const std::string &text);

} // namespace lumio::trace
