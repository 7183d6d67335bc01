#include "schedule.h"

#include <lumio-host/pvr-control.h>

#include <array>
#include <ctime>

#include "broadcast.h"

namespace {

constexpr unsigned kSlot = 1800; // seconds of a programme
constexpr std::array kTitles = {"Evening News",     "Tides and Harbours", "The Long Way Home",
                                "Kitchen Stories",  "Night Train",        "Gardens of the North",
                                "Jazz at the Mill", "The Glass Mountain", "Cup Final"};
constexpr std::array kCaptions = {"Good evening.",
                                  "The harbour froze over last night.",
                                  "Ferries run again from the morning on.",
                                  "\xe2\x99\xaa (a fiddle plays)",
                                  "We were out there before sunrise,",
                                  "and there was nobody to be seen."};
constexpr std::array kPages = {"Tomorrow: sunny, 21 \xc2\xb0"
                               "C",
                               "Saturday: showers, 17 \xc2\xb0"
                               "C",
                               "Sunday: wind from the north-west"};

// Each channel has another title in each slot.
Programme InSlot(std::time_t slot, int channel) {
  return {kTitles[(static_cast<size_t>(slot) * 2 + static_cast<size_t>(channel)) % kTitles.size()], slot * kSlot,
          kSlot};
}

template <class Array> const char *At(const Array &array, int index) {
  return array[static_cast<size_t>(index) % array.size()];
}

// A recording of half a minute in every one.
void Record(int second) {
  if (second % 60 == 1) {
    lumio::pvr::StartRecording(second / 60 + 1);
  } else if (second % 60 == 31) {
    lumio::pvr::StopRecording();
  }
}

} // namespace

Schedule::Schedule(bool run, Channels &channels) {
  if (run) {
    channels.OnChosen([this](int channel) {
      channel_ = channel;
      BroadcastProgrammes();
    });
    timer_ = ecore_timer_add(1, Tick, this);
    BroadcastSignal(SIGNAL_TYPE_LOCK, 1, 0);
    BroadcastServices({"Lumio One", "Lumio Two", "News 24", "Sport", "Cinema", "Nature", "Music", "Kids", "Regional"});
    Broadcast();
  }
}

Schedule::~Schedule() {
  if (timer_) {
    ecore_timer_del(timer_);
  }
}

Eina_Bool Schedule::Tick(void *data) {
  auto *self = static_cast<Schedule *>(data);
  ++self->second_;
  self->Broadcast();
  return ECORE_CALLBACK_RENEW;
}

void Schedule::BroadcastProgrammes() const {
  const std::time_t slot = std::time(nullptr) / kSlot;
  BroadcastProgramme(PROGRAM_CHANGE_PRESENT, InSlot(slot, channel_));
  BroadcastProgramme(PROGRAM_CHANGE_FOLLOWING, InSlot(slot + 1, channel_));
}

void Schedule::Broadcast() {
  if (second_ % 60 == 0) {
    BroadcastProgrammes();
  }
  if (second_ % 5 == 0) {
    BroadcastSignal(SIGNAL_TYPE_STRENGTH, 78 + second_ / 5 % 7, 92 + second_ / 5 % 3);
    BroadcastModule(second_ / 5 % static_cast<int>(kPages.size()), At(kPages, second_ / 5));
  }
  if (second_ % 4 == 0) {
    BroadcastCaption(At(kCaptions, second_ / 4));
  }
  BroadcastPacket(second_, "teletext page 100");
  Record(second_);
}
