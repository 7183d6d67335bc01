// A test card with the channel and a clock: the picture while there is no other.
#pragma once

#include "canvas.h"
#include "picture_source.h"

class TestCard : public PictureSource {
public:
  explicit TestCard(const Canvas &canvas);

  Evas_Object *Object() const override { return card_; }
  void SetChannel(const std::string &channel) override;
  void SetMoving(bool moving) override;
  void SetTime(const std::string &time) override;

private:
  Evas_Object *card_;
  bool moving_ = false;
};
