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

void SectionAssembler::Drop() {
  begun_.clear();
  if (counted_) {
    begun_.shrink_to_fit();
    budget_.Give(kLongestSection);
    counted_ = false;
  }
}

} // namespace lumio::broadcast
