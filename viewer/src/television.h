// What the viewer shows, on the screen and on the console alike.
#pragma once

#include "console.h"
#include "screen/screen.h"

class Television : public Presentation {
public:
  // With `describe`, the console also prints what the canvas shows for each item and key.
  Television(Console &console, Screen &screen, bool describe)
      : console_(console), screen_(screen), describe_(describe) {}

  void Show(const std::string &item, const std::string &text, const Details &details) override;
  void Hide(const std::string &item) override;
  void Refresh() override;
  void BeginKey() override { console_.BeginKey(); }
  void ShowKey(const KeyJourney &journey) override;

private:
  void Describe(const std::string &item);

  Console &console_;
  Screen &screen_;
  bool describe_;
};
