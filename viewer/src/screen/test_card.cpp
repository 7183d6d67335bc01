#include "test_card.h"

#include <Edje.h>

TestCard::TestCard(const Canvas &canvas) : card_(canvas.Add("test card")) {}

void TestCard::SetChannel(const std::string &channel) {
  edje_object_part_text_unescaped_set(card_, "channel", ("Channel " + channel).c_str());
}

void TestCard::SetMoving(bool moving) {
  if (moving != moving_) {
    moving_ = moving;
    edje_object_signal_emit(card_, moving ? "run" : "stop", "picture");
  }
}

void TestCard::SetTime(const std::string &time) { edje_object_part_text_unescaped_set(card_, "clock", time.c_str()); }
