#include "key_journal.h"

#include <Ecore.h>

void KeyJournal::Begin(const std::string &key, bool press, int source) {
  End();
  current_.emplace();
  current_->time = ecore_time_unix_get();
  current_->key = key;
  current_->press = press;
  current_->source = source;
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

void KeyJournal::PassedOn() {
  if (current_) {
    current_->passed_on = true;
    End();
  }
}

void KeyJournal::End() {
  if (current_) {
    const KeyJourney ended = *std::move(current_);
    current_.reset();
    screen_.ShowKey(ended);
  }
}
