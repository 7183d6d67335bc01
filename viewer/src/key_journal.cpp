#include "key_journal.h"

#include <Ecore.h>

namespace {

// For a key about which no module was asked and which the library did not pass on. lumio-keylog uses the same words.
constexpr char kBurst[] = "dropped: burst";

} // namespace

void KeyJournal::Begin(const std::string &key, bool press, int source, const std::string &device) {
  End();
  screen_.BeginKey();
  current_.emplace();
  current_->time = ecore_time_unix_get();
  current_->key = key;
  current_->press = press;
  current_->source = source;
  current_->device = device;
  begun_ = ecore_time_get();
}

void KeyJournal::Answered(const std::string &module, bool taken) {
  if (!current_) {
    return;
  }
  current_->asked.push_back(module);
  current_->duration = ecore_time_get() - begun_;
  if (taken) {
    current_->taker = module;
    End();
  }
}

void KeyJournal::PassedOn(const std::string &why) {
  if (current_) {
    current_->unasked = why;
    End();
  }
}

void KeyJournal::End() {
  if (current_) {
    if (current_->asked.empty() && current_->unasked.empty()) {
      current_->unasked = kBurst;
    }
    const KeyJourney ended = *std::move(current_);
    current_.reset();
    screen_.ShowKey(ended);
  }
}
