#include "section_assembler.h"

namespace lumio::broadcast {

void SectionAssembler::Keep(Bytes bytes) {
  if (!counted_ && !budget_.Take(kLongestSection)) {
    return;
  }
  counted_ = true;
  begun_.reserve(kLongestSection);
  begun_.insert(begun_.end(), bytes.begin(), bytes.end());
}

// The buffer is kept for the next section.
void SectionAssembler::Drop() {
  begun_.clear();
  if (counted_ && !budget_.IsAmple()) {
    Release();
  }
}

void SectionAssembler::Release() {
  begun_.clear();
  begun_.shrink_to_fit();
  budget_.Give(counted_ ? kLongestSection : 0);
  counted_ = false;
}

} // namespace lumio::broadcast
