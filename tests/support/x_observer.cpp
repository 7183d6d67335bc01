#include "x_observer.h"

#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/Xfixes.h>

#include <algorithm>

Box Difference(const Picture &one, const Picture &other) {
  Box box = {one.width, one.height, 0, 0};
  for (int y = 0; y < one.height; ++y) {
    for (int x = 0; x < one.width; ++x) {
      const auto at = static_cast<size_t>(y * one.width + x);
      if ((one.pixels[at] ^ other.pixels[at]) & 0xffffffU) {
        box = {std::min(box.left, x), std::min(box.top, y), std::max(box.right, x + 1), std::max(box.bottom, y + 1)};
      }
    }
  }
  return box;
}

XObserver::XObserver(const std::string &display) : display_(XOpenDisplay(display.c_str())) {}

XObserver::~XObserver() { XCloseDisplay(display_); }

bool XObserver::IsVisible(Window window) const {
  XWindowAttributes attributes = {};
  XGetWindowAttributes(display_, window, &attributes);
  return attributes.map_state == IsViewable;
}

Picture XObserver::Shot(Window window) const {
  XWindowAttributes attributes = {};
  XGetWindowAttributes(display_, window, &attributes);
  Picture picture = {attributes.width, attributes.height};
  XImage *image = XGetImage(display_, window, 0, 0, static_cast<unsigned>(attributes.width),
                            static_cast<unsigned>(attributes.height), AllPlanes, ZPixmap);
  picture.pixels.resize(static_cast<size_t>(picture.width) * static_cast<size_t>(picture.height));
  unsigned *pixel = picture.pixels.data();
  for (int y = 0; y < picture.height; ++y) {
    // One word per pixel, as on every modern display. XGetPixel() takes much longer.
    const auto *row = reinterpret_cast<const unsigned *>(image->data + y * image->bytes_per_line);
    for (int x = 0; x < picture.width; ++x) {
      *pixel++ = row[x] & 0xffffffU;
    }
  }
  XDestroyImage(image);
  return picture;
}

void XObserver::Resize(Window window, int width, int height) const {
  XResizeWindow(display_, window, static_cast<unsigned>(width), static_cast<unsigned>(height));
  XSync(display_, False);
}

// Does what a window manager does.
void XObserver::Iconify(Window window) const {
  XUnmapWindow(display_, window);
  XSync(display_, False);
}

void XObserver::Restore(Window window) const {
  XMapWindow(display_, window);
  XSync(display_, False);
}

bool XObserver::HasFocus(unsigned long window) const {
  Window focused = 0;
  int revert_to = 0;
  XGetInputFocus(display_, &focused, &revert_to);
  return focused == window;
}

void XObserver::MovePointer(unsigned long window, int x, int y) const {
  XWarpPointer(display_, None, window, 0, 0, 0, 0, x, y);
  XSync(display_, False);
}

bool XObserver::IsPointerDrawn() const {
  XFixesCursorImage *image = XFixesGetCursorImage(display_);
  const unsigned long *end = image->pixels + image->width * image->height;
  const bool drawn = std::any_of(static_cast<const unsigned long *>(image->pixels), end,
                                 [](unsigned long pixel) { return pixel >> 24U & 0xffU; });
  XFree(image);
  return drawn;
}

void XObserver::Cover(Window window) {
  XWindowAttributes attributes = {};
  XGetWindowAttributes(display_, window, &attributes);
  XSetWindowAttributes own = {};
  own.override_redirect = True;
  cover_ = XCreateWindow(display_, DefaultRootWindow(display_), attributes.x + 50, attributes.y + 50, 400, 300, 0,
                         CopyFromParent, InputOutput, nullptr, CWOverrideRedirect, &own);
  XMapRaised(display_, cover_);
  XSync(display_, False);
}

void XObserver::Uncover() {
  XDestroyWindow(display_, cover_);
  XSync(display_, False);
}
