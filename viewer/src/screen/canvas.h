// The window and what is drawn in it: the theme, 16:9 in the middle of a window of any size.
#pragma once

#include <Ecore_Evas.h>
#include <Ecore_X.h>

#include <string>

#include "frame_clock.h"

class Canvas {
public:
  // Opens a window that shows the group "screen" of the theme's file. Throws std::runtime_error with a text for the
  // user. EFL and its connection to the X server are up.
  explicit Canvas(const std::string &theme_file);
  ~Canvas();
  Canvas(const Canvas &) = delete;
  Canvas &operator=(const Canvas &) = delete;

  Ecore_X_Window Window() const;
  // The theme's group "screen".
  Evas_Object *Theme() const { return theme_; }
  // Makes another object, from a group of the theme's file. It lives as long as the canvas.
  Evas_Object *Add(const char *group) const;
  // Draws what has changed, without waiting for the main loop to be idle.
  void Draw() const;
  // Returns how often something was drawn so far.
  unsigned Frames() const { return frames_; }
  // Writes the contents of the window, as far as it is on the screen, to a PNG file. Returns whether that worked.
  bool Save(const std::string &file) const;

private:
  static void Resized(Ecore_Evas *window);
  static void DrawingBegins(void *data, Evas *evas, void *event);
  static void Drawn(void *data, Evas *evas, void *event);
  void FinishDrawing() const;
  void Fit() const;

  FrameClock frame_clock_;
  std::string theme_file_;
  Ecore_Evas *window_;
  Evas_Object *border_ = nullptr; // black, where a window is not 16:9
  Evas_Object *theme_ = nullptr;
  bool is_drawing_ = false; // on a thread of Evas
  unsigned frames_ = 0;
};
