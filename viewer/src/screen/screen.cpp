#include "screen.h"

#include <Edje.h>

#include <cstdlib>

namespace {

constexpr char kHidden[] = "(hidden)";
constexpr size_t kMenuRows = 4;
constexpr size_t kGuideRows = 8;
constexpr double kLoudest = 100;

// Names of the theme's parts that may show the text of an item.
std::vector<std::string> Places(const std::string &item) {
  return {item + ":text", "channel:" + item, "info:" + item, "keys:" + item};
}

bool Has(Evas_Object *theme, const std::string &part) {
  return edje_object_part_exists(theme, part.c_str()) == EINA_TRUE;
}

// Returns the text of the part. Edje returns markup for a text block.
std::string Text(Evas_Object *theme, const std::string &part) {
  const char *text = edje_object_part_text_get(theme, part.c_str());
  char *plain = text ? evas_textblock_text_markup_to_utf8(nullptr, text) : nullptr;
  const bool is_markup =
      text && std::string(evas_object_type_get(edje_object_part_object_get(theme, part.c_str()))) == "textblock";
  std::string shown = !text ? "" : is_markup ? plain : text;
  std::free(plain);
  return shown;
}

} // namespace

Screen::Screen(Canvas &canvas, std::unique_ptr<PictureSource> picture, WallClock clock)
    : canvas_(canvas), theme_(canvas.Theme()), picture_(std::move(picture)), clock_(clock), keys_(canvas) {
  lists_.emplace("menu", ListView(canvas, "menu", kMenuRows));
  lists_.emplace("guide", ListView(canvas, "guide", kGuideRows));
  edje_object_part_swallow(theme_, "source", picture_->Object());
  picture_->SetChannel(channel_);
  Tick();
  if (clock_.IsStill()) {
    edje_object_animation_set(theme_, EINA_FALSE);
    return;
  }
  MovePicture();
  timer_ = ecore_timer_add(
      1,
      [](void *data) -> Eina_Bool {
        static_cast<Screen *>(data)->Tick();
        return ECORE_CALLBACK_RENEW;
      },
      this);
}

Screen::~Screen() {
  if (timer_) {
    ecore_timer_del(timer_);
  }
}

void Screen::Show(const std::string &item, const std::string &text, const Details &details) {
  const auto list = lists_.find(item);
  if (list != lists_.end()) {
    list->second.Show(details);
  }
  Write(item, details.entries.empty() || list == lists_.end() ? text : "");
  if (item == "channel") {
    channel_ = text;
    ShowChannel();
  } else if (item == "services") {
    services_ = details.entries;
    ShowChannel();
  } else if (item == "now") {
    programme_ = {details.start, details.end};
    ShowProgress();
  } else if (item == "volume") {
    edje_object_part_drag_value_set(theme_, "volume:bar.level", 0, std::atoi(text.c_str()) / kLoudest);
  } else if (item == "page" && !details.entries.empty()) {
    WriteRows("page:text", details.entries);
  } else if (item == "picture" || item == "light") {
    ShowState(item, text);
  }
  SetShown(item, true);
}

void Screen::Hide(const std::string &item) { SetShown(item, false); }

void Screen::ShowKey(const KeyJourney &journey) { keys_.Show(journey); }

std::string Screen::Shown(const std::string &item) const {
  if (Has(theme_, item) && std::string(edje_object_part_state_get(theme_, item.c_str(), nullptr)) == "default") {
    return kHidden;
  }
  const auto list = lists_.find(item);
  if (list != lists_.end() && !list->second.Shown().empty()) {
    return list->second.Shown();
  }
  for (const std::string &place : Places(item)) {
    if (Has(theme_, place)) {
      return Text(theme_, place);
    }
  }
  return "";
}

void Screen::Write(const std::string &item, const std::string &text) {
  for (const std::string &place : Places(item)) {
    if (Has(theme_, place)) {
      edje_object_part_text_unescaped_set(theme_, place.c_str(), text.c_str());
    }
  }
}

void Screen::WriteRows(const char *part, const std::vector<std::string> &rows) {
  std::string markup;
  for (const std::string &row : rows) {
    char *escaped = evas_textblock_text_utf8_to_markup(nullptr, row.c_str());
    markup += std::string(escaped ? escaped : "") + "<br/>";
    std::free(escaped);
  }
  edje_object_part_text_set(theme_, part, markup.c_str());
}

void Screen::SetShown(const std::string &item, bool shown) {
  if (item == "keys") {
    keys_.SetShown(shown);
  }
  Signal(shown ? "show" : "hide", item);
}

// Edje passes signals on to the objects inside the theme, too. It would collect those until the main loop is idle.
void Screen::Signal(const std::string &signal, const std::string &item) {
  edje_object_signal_emit(theme_, signal.c_str(), item.c_str());
  edje_message_signal_process();
}

// Items whose text is a state that the theme draws.
void Screen::ShowState(const std::string &item, const std::string &state) {
  Signal(state, item);
  (item == "picture" ? has_picture_ : is_lit_) = state == "moving" || state == "green";
  MovePicture();
}

void Screen::MovePicture() {
  if (!clock_.IsStill()) {
    picture_->SetMoving(has_picture_ && is_lit_);
  }
}

void Screen::ShowChannel() {
  const auto number = static_cast<size_t>(std::atoi(channel_.c_str()));
  Write("name", number >= 1 && number <= services_.size() ? services_[number - 1] : "");
  picture_->SetChannel(channel_);
}

void Screen::ShowProgress() {
  const std::int64_t duration = programme_.end - programme_.start;
  const std::int64_t passed = clock_.Now() - programme_.start;
  // Edje keeps the level within the bar.
  edje_object_part_drag_value_set(theme_, "channel:progress.level",
                                  duration > 0 ? static_cast<double>(passed) / static_cast<double>(duration) : 0, 0);
  Write("time", duration > 0 ? HourAndMinute(programme_.start) + " \xe2\x80\x93 " + HourAndMinute(programme_.end) : "");
}

void Screen::Tick() {
  const std::int64_t now = clock_.Now();
  picture_->SetTime(HourMinuteSecond(now));
  Write("clock", HourAndMinute(now));
  ShowProgress();
}
