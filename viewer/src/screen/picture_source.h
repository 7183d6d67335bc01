// Where the picture behind everything else comes from: a test card; one day a broadcast.
#pragma once

#include <Evas.h>

#include <string>

class PictureSource {
public:
  virtual ~PictureSource() = default;

  // The object to draw. The screen sets its position and size.
  virtual Evas_Object *Object() const = 0;
  // Call it when another channel is shown.
  virtual void SetChannel(const std::string &channel) = 0;
  // Makes the picture move, or stop while it cannot be seen.
  virtual void SetMoving(bool moving) = 0;
  // Sets the time of day, "20:15:00".
  virtual void SetTime(const std::string &time) = 0;
};
