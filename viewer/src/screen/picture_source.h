// Where the picture behind everything else comes from: a test card; one day a broadcast.
#pragma once

#include <Evas.h>

#include <string>

class PictureSource {
public:
  virtual ~PictureSource() = default;

  // What is drawn. The screen gives it its place and size.
  virtual Evas_Object *Object() const = 0;
  // Another channel is shown.
  virtual void SetChannel(const std::string &channel) = 0;
  // The picture moves, or stands still while nobody sees it.
  virtual void SetMoving(bool moving) = 0;
  // The time of day has become this, "20:15:00".
  virtual void SetTime(const std::string &time) = 0;
};
