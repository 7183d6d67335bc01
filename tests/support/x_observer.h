// Looks at windows, and does to them what users and other programs do, as another client of the X server. Without
// Xlib.h, whose names are the viewer's too.
#pragma once

#include <string>
#include <vector>

struct Picture {
  int width = 0;
  int height = 0;
  std::vector<unsigned> pixels = {}; // in rows

  bool operator==(const Picture &other) const {
    return width == other.width && height == other.height && pixels == other.pixels;
  }
};

// Pixels from `left` to before `right`, and from `top` to before `bottom`.
struct Box {
  int left, top, right, bottom;
  bool IsEmpty() const { return right <= left; }
};

// The smallest box with all pixels in which two pictures of one size differ.
Box Difference(const Picture &one, const Picture &other);

class XObserver {
public:
  explicit XObserver(const std::string &display);
  ~XObserver();
  XObserver(const XObserver &) = delete;
  XObserver &operator=(const XObserver &) = delete;

  bool IsVisible(unsigned long window) const;
  // What is in the window. It has to be visible.
  Picture Shot(unsigned long window) const;
  void Resize(unsigned long window, int width, int height) const;
  void Iconify(unsigned long window) const;
  void Restore(unsigned long window) const;
  bool HasFocus(unsigned long window) const;
  // Moves the mouse pointer to a place in the window.
  void MovePointer(unsigned long window, int x, int y) const;
  // Whether the pointer has a picture now.
  bool IsPointerDrawn() const;
  // Puts a window of its own over the other one.
  void Cover(unsigned long window);
  void Uncover();

private:
  struct _XDisplay *display_;
  unsigned long cover_ = 0;
};
