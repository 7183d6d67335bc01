#include "caption_choice.h"

#include <algorithm>

namespace {

constexpr unsigned long long kNoTime = ~0ULL;
constexpr unsigned long long kTimes = 1ULL << 33; // then they start again
constexpr unsigned long long kSecond = 90000;
constexpr unsigned long long kApart = 2 * kSecond;    // by which two sources may have the same caption
constexpr unsigned long long kLongest = 10 * kSecond; // that a caption stays
constexpr size_t kMostShown = 4;

bool HasTime(unsigned long long pts) { return pts != 0 && pts != kNoTime; }

unsigned long long Between(unsigned long long from, unsigned long long to) { return (to - from) % kTimes; }

} // namespace

bool CaptionChoice::Accepts(const TSCaption &caption) {
  if (caption.payload.empty() ? language_ != caption.language
                              : language_.value_or(caption.language) != caption.language) {
    return false;
  }
  language_ = caption.language;
  if (!HasTime(caption.pts)) {
    return true;
  }
  if (caption.payload.empty()) {
    // The other source may still be ending the caption before the one that is shown.
    const unsigned long long early = shown_.empty() ? 0 : Between(caption.pts, shown_.back().pts);
    return early == 0 || early > kLongest;
  }
  const std::string text(caption.payload.begin(), caption.payload.end());
  const bool is_known = std::any_of(shown_.begin(), shown_.end(), [&](const Shown &shown) {
    return shown.text == text && std::min(Between(shown.pts, caption.pts), Between(caption.pts, shown.pts)) <= kApart;
  });
  if (is_known) {
    return false;
  }
  shown_.push_back({text, caption.pts});
  if (shown_.size() > kMostShown) {
    shown_.pop_front();
  }
  return true;
}

void CaptionChoice::Reset() {
  language_.reset();
  shown_.clear();
}
