// A presentation on the canvas: what the viewer shows, drawn as a television draws it.
//
// The theme decides what an item looks like and where it is (viewer/theme). The screen hands it the item's text, for
// the parts "ITEM:text", "channel:ITEM", "info:ITEM" and "keys:ITEM" as far as it has them, and the signals "show" and
// "hide" with the item as their source.
#pragma once

#include <Ecore.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "../presentation.h"
#include "canvas.h"
#include "key_overlay.h"
#include "list_view.h"
#include "picture_source.h"
#include "wall_clock.h"

class Screen : public Presentation {
public:
  // With a clock that stands still, the screen changes only when items are shown or hidden.
  Screen(Canvas &canvas, std::unique_ptr<PictureSource> picture, WallClock clock);
  ~Screen() override;
  Screen(const Screen &) = delete;
  Screen &operator=(const Screen &) = delete;

  void Show(const std::string &item, const std::string &text, const Details &details) override;
  void Hide(const std::string &item) override;
  void ShowKey(const KeyJourney &journey) override;
  void Refresh() override { canvas_.Draw(); }

  // Returns what the theme shows for the item: its text, "(hidden)", or nothing if the theme has no place for it.
  std::string Shown(const std::string &item) const;
  KeyOverlay &Keys() { return keys_; }

private:
  struct Programme {
    std::int64_t start;
    std::int64_t end;
  };

  void Write(const std::string &item, const std::string &text);
  void WriteRows(const char *part, const std::vector<std::string> &rows);
  void SetShown(const std::string &item, bool shown);
  void Signal(const std::string &signal, const std::string &item);
  void ShowState(const std::string &item, const std::string &state);
  void MovePicture();
  void ShowChannel();
  void ShowProgress();
  void Tick();

  Canvas &canvas_;
  Evas_Object *theme_;
  std::unique_ptr<PictureSource> picture_;
  WallClock clock_;
  KeyOverlay keys_;
  std::map<std::string, ListView> lists_; // by item
  std::vector<std::string> services_;     // names, from channel 1 on
  std::string channel_ = "1";
  Programme programme_ = {};
  bool has_picture_ = true; // as far as is known
  bool is_lit_ = true;      // not in standby
  Ecore_Timer *timer_ = nullptr;
};
