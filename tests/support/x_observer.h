// Another client of the X server, which looks at windows and does to them what users and other programs do. Does not
// include Xlib.h, because the viewer uses some of its names.
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

// Returns the smallest box that contains all differences between two pictures of the same size.
Box Difference(const Picture &one, const Picture &other);

class XObserver {
public:
  explicit XObserver(const std::string &display);
  ~XObserver();
  XObserver(const XObserver &) = delete;
  XObserver &operator=(const XObserver &) = delete;

  bool IsVisible(unsigned long window) const;
  // Returns the pixels of the window, which must be visible.
  Picture Shot(unsigned long window) const;
  void Resize(unsigned long window, int width, int height) const;
  void Iconify(unsigned long window) const;
  void Restore(unsigned long window) const;
  bool HasFocus(unsigned long window) const;
  // Moves the mouse pointer to a place in the window.
  void MovePointer(unsigned long window, int x, int y) const;
  // Returns whether the mouse pointer is visible now.
  bool IsPointerDrawn() const;
  // Covers the window with a window of the observer.
  void Cover(unsigned long window);
  void Uncover();

private:
  struct _XDisplay *display_;
  unsigned long cover_ = 0;
};
