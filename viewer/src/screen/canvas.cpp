#include "canvas.h"

#include <Edje.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <algorithm>
#include <stdexcept>

namespace {

constexpr int kWidth = 960;
constexpr int kHeight = 540;
constexpr int kSmallest = 180;        // height
constexpr double kDesignHeight = 720; // the theme's sizes are those of a picture of this height
constexpr char kTitle[] = "Live TV";
constexpr char kData[] = "canvas";

// Returns the part of the window that is within the borders of the screen. The X server has no picture of the rest.
Eina_Rectangle PartOnScreen(Ecore_X_Window window) {
  Eina_Rectangle part = {};
  Eina_Rectangle screen = {};
  ::Window child = 0;
  const Ecore_X_Window root = ecore_x_window_root_get(window);
  ecore_x_window_size_get(window, &part.w, &part.h);
  ecore_x_window_size_get(root, &screen.w, &screen.h);
  XTranslateCoordinates(static_cast<Display *>(ecore_x_display_get()), root, window, 0, 0, &screen.x, &screen.y,
                        &child);
  return eina_rectangle_intersection(&part, &screen) ? part : Eina_Rectangle{};
}

} // namespace

Canvas::Canvas(const std::string &theme_file)
    : theme_file_(theme_file), window_(ecore_evas_software_x11_new(nullptr, 0, 0, 0, kWidth, kHeight)) {
  if (!window_) {
    throw std::runtime_error("no window can be opened on the X display");
  }
  ecore_evas_data_set(window_, kData, this);
  ecore_evas_title_set(window_, kTitle);
  ecore_evas_name_class_set(window_, "lumio-viewer", "Lumio-viewer");
  ecore_evas_size_min_set(window_, kSmallest * 16 / 9, kSmallest);
  ecore_evas_callback_resize_set(window_, Resized);
  border_ = evas_object_rectangle_add(ecore_evas_get(window_));
  evas_object_color_set(border_, 0, 0, 0, 255);
  evas_object_show(border_);
  theme_ = Add("screen");
  if (!theme_) {
    ecore_evas_free(window_);
    throw std::runtime_error("the theme " + theme_file + " cannot be read");
  }
  evas_event_callback_add(ecore_evas_get(window_), EVAS_CALLBACK_RENDER_PRE, DrawingBegins, this);
  evas_event_callback_add(ecore_evas_get(window_), EVAS_CALLBACK_RENDER_POST, Drawn, this);
  Fit();
  ecore_evas_show(window_);
}

Canvas::~Canvas() {
  FinishDrawing(); // into what is freed here
  ecore_evas_free(window_);
}

Ecore_X_Window Canvas::Window() const { return ecore_evas_software_x11_window_get(window_); }

Evas_Object *Canvas::Add(const char *group) const {
  Evas_Object *object = edje_object_add(ecore_evas_get(window_));
  if (!edje_object_file_set(object, theme_file_.c_str(), group)) {
    evas_object_del(object);
    return nullptr;
  }
  evas_object_show(object);
  return object;
}

void Canvas::Draw() const {
  FinishDrawing(); // otherwise a frame that is being drawn would be mistaken for this one
  ecore_evas_manual_render(window_);
  FinishDrawing();
  ecore_x_sync();
}

// Evas stops waiting for its thread where a busy machine keeps that from drawing.
void Canvas::FinishDrawing() const {
  do {
    evas_sync(ecore_evas_get(window_));
  } while (is_drawing_);
}

// Asks the X server, which knows best what can be seen.
bool Canvas::Save(const std::string &file) const {
  Draw();
  const auto [left, top, width, height] = PartOnScreen(Window());
  Ecore_X_Window_Attributes attributes;
  if (width == 0 || !ecore_x_window_attributes_get(Window(), &attributes)) {
    return false;
  }
  XImage *shot = XGetImage(static_cast<Display *>(ecore_x_display_get()), Window(), left, top,
                           static_cast<unsigned>(width), static_cast<unsigned>(height), AllPlanes, ZPixmap);
  if (!shot) {
    return false;
  }
  Evas_Object *picture = evas_object_image_add(ecore_evas_get(window_));
  evas_object_image_size_set(picture, width, height);
  void *pixels = evas_object_image_data_get(picture, EINA_TRUE);
  bool saved =
      ecore_x_image_to_argb_convert(shot->data, shot->bits_per_pixel / 8, shot->bytes_per_line, attributes.colormap,
                                    attributes.visual, 0, 0, width, height, static_cast<unsigned *>(pixels),
                                    evas_object_image_stride_get(picture), 0, 0) == EINA_TRUE;
  evas_object_image_data_set(picture, pixels);
  saved = saved && evas_object_image_save(picture, file.c_str(), nullptr, "compress=6") == EINA_TRUE;
  evas_object_del(picture);
  XDestroyImage(shot);
  return saved;
}

void Canvas::Resized(Ecore_Evas *window) { static_cast<Canvas *>(ecore_evas_data_get(window, kData))->Fit(); }

void Canvas::DrawingBegins(void *data, Evas *, void *) { static_cast<Canvas *>(data)->is_drawing_ = true; }

void Canvas::Drawn(void *data, Evas *, void *) {
  auto *self = static_cast<Canvas *>(data);
  self->is_drawing_ = false;
  ++self->frames_;
}

void Canvas::Fit() const {
  int width = 0;
  int height = 0;
  ecore_evas_geometry_get(window_, nullptr, nullptr, &width, &height);
  const int fit_width = std::min(width, height * 16 / 9);
  const int fit_height = std::min(height, width * 9 / 16);
  evas_object_resize(border_, width, height);
  edje_scale_set(fit_height / kDesignHeight);
  evas_object_move(theme_, (width - fit_width) / 2, (height - fit_height) / 2);
  evas_object_resize(theme_, fit_width, fit_height);
}
