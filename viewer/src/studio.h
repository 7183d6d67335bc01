// Controls what happens outside the viewer: a desktop has no broadcaster and no recorder, so the user decides what the
// platform's services report.
#pragma once

#include <Ecore.h>

#include <string>

#include "channels.h"
#include "presentation.h"
#include "screen/canvas.h"

class Studio {
public:
  // With `listen`, takes orders from standard input, one a line; "help" lists them.
  Studio(Presentation &screen, const Canvas &canvas, Channels &channels, bool listen);
  // Ends the threads of the services: no notification comes after that.
  ~Studio();
  Studio(const Studio &) = delete;
  Studio &operator=(const Studio &) = delete;

  // Shows how many subscriptions the TV service has now, by kind, and which modules share them.
  void ShowSubscriptions();
  // Shows how often the screen was drawn.
  void ShowFrames();
  // Writes what is on the screen to a PNG file, after everything that earlier orders bring about.
  void TakePicture(const std::string &file);
  // Plays a transport stream that stands still until time passes by order.
  void Play(const std::string &file);

private:
  static Eina_Bool InputCame(void *data, Ecore_Fd_Handler *handler);
  static void FileIsThere(void *data);
  static Eina_Bool PictureIsDue(void *data, int type, void *event);
  bool Read();
  void Obey(const std::string &line);

  Presentation &screen_;
  const Canvas &canvas_;
  Channels &channels_;
  Ecore_Fd_Handler *input_ = nullptr;
  Ecore_Job *file_ = nullptr; // in place of input_ where standard input is a file
  std::string pending_;       // read, not yet a whole line
  Ecore_Event_Handler *picture_;
};
