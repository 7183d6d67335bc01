// The picture of the service that is tuned to, which Emotion plays; the test card where that is not possible.
#pragma once

#include <Ecore.h>

#include "file_descriptor.h"
#include "picture_source.h"
#include "test_card.h"

// Emotion reads what the player passes on, so that the picture belongs to what the modules are told. It has no sound.
class BroadcastPicture : public PictureSource {
public:
  explicit BroadcastPicture(const Canvas &canvas);
  ~BroadcastPicture() override;
  BroadcastPicture(const BroadcastPicture &) = delete;
  BroadcastPicture &operator=(const BroadcastPicture &) = delete;

  Evas_Object *Object() const override { return frame_; }
  void SetChannel(const std::string &channel) override { card_.SetChannel(channel); }
  void SetMoving(bool moving) override;
  void SetTime(const std::string &time) override { card_.SetTime(time); }

  // Call it when another service is tuned to.
  void Follow();

private:
  void Open();
  void Close();
  void Play();
  void OnEnded();
  void GiveUp();
  void ShowPart(const char *part);

  static void FrameCame(void *data, Evas_Object *video, void *event);
  static void Prepared(void *data, Evas_Object *video, void *event);
  static void Ended(void *data, Evas_Object *video, void *event);

  TestCard card_;
  Evas_Object *frame_;           // the theme's, with the card and the video in it
  Evas_Object *video_ = nullptr; // null: not open
  lumio::FileDescriptor stream_;
  Ecore_Timer *start_ = nullptr; // until the video starts
  Ecore_Job *ended_ = nullptr;
  bool moving_ = false;
  bool has_picture_ = false;
  bool is_playable_ = true; // as far as is known
};
