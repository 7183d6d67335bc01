// An item of the screen whose state other processes can read.
#pragma once

#include <Ecore.h>

#include <string>

#include "presentation.h"

// The numbers by which other processes know the banners.
enum BannerId { kVolumeBanner = 0, kChannelBanner = 1, kInfoBanner = 2, kRecordBanner = 3 };

class Banner {
public:
  Banner(BannerId id, std::string item, Presentation &screen) : id_(id), item_(std::move(item)), screen_(screen) {}
  ~Banner() { StopTimer(); }
  Banner(const Banner &) = delete;
  Banner &operator=(const Banner &) = delete;

  // Shows the banner until it is hidden.
  void Show(const std::string &text);
  // Shows the banner for a few seconds.
  void ShowBriefly(const std::string &text);
  void Hide();

private:
  static Eina_Bool TimeIsUp(void *data);
  void StopTimer();

  const BannerId id_;
  const std::string item_;
  Presentation &screen_;
  Ecore_Timer *timer_ = nullptr;
};
