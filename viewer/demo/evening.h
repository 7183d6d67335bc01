// The stage of the demo: a television's display with the viewer on it, and the book of what was expected and seen.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "display.h"
#include "program.h"

using lumio::Clock;

// Every wait is for something that the viewer says, and ends as failed after a time that even a loaded machine keeps.
class Evening {
public:
  // Starts the display, the viewer, and a watch on its banners. Store, log and programme guide are in `directory`.
  explicit Evening(const std::string &directory);

  // Begins a scene. To be called before anything is expected.
  void Heading(const std::string &text);

  // Presses a key of the remote that was not used last: its key is obeyed however late a loaded machine gets around to
  // it, since the library looks at the age of a second key of one device only.
  void Press(const std::string &key);
  void PressOnSameRemote(const std::string &key);
  void Release(const std::string &key);
  // The next line about a key is about this key and kind ("press" or "release") and says who was asked ("menu, volume")
  // and the outcome ("taken by volume"), and that the key came from the remote that was used last.
  void ExpectKey(const std::string &key, const std::string &kind, const std::string &asked, const std::string &outcome);
  // A key of the other remote, pressed and released in peace: the press as told, the release taken by nobody.
  void Tap(const std::string &key, const std::string &asked, const std::string &outcome);
  // The longest time that a key took so far from its press to the line about it.
  std::chrono::duration<double> SlowestKey() const { return slowest_key_; }

  // The item of the viewer's screen shows this, after what was expected of it before.
  void ExpectScreen(const std::string &item, const std::string &text);

  // Has the studio broadcast or record something, see viewer/src/studio.cpp.
  void Order(const std::string &order);

  // The banners that another process sees become these: the sum of 1 for the volume, 2 for the channel, 4 for the
  // information, 8 for the record indicator.
  void ExpectBanners(int word);

  // A pipe that the viewer reads as its programme guide: opened there, it waits for somebody to write here.
  const std::string &GuideFile() const { return guide_file_; }

  // Another process of the television: runs to its end, which has to be a success, and prints `answer`.
  void Run(const std::string &what, const std::vector<std::string> &command, const std::string &answer = "");

  // Asks the viewer to end, as a session does, and waits for it.
  void End();

  // Prints what was expected and seen; returns whether everything happened.
  bool Summarise() const;

private:
  using Fields = std::vector<std::string>;

  struct Scene {
    std::string heading;
    std::vector<std::pair<std::string, bool>> expected; // and whether it happened
  };

  // The next line about this subject that `wanted` accepts; empty when none comes in time.
  Fields Find(const std::string &subject, const std::function<bool(const Fields &)> &wanted);
  Clock::time_point Deadline() const;
  void Record(const std::string &what, bool happened);

  std::string guide_file_;
  lumio::PrivateDisplay display_;
  std::map<std::string, std::string> environment_; // of the viewer and of what runs beside it
  lumio::Program viewer_;
  lumio::Program watch_;
  std::vector<Fields> lines_;                        // everything the viewer said
  std::map<std::string, size_t> next_;               // by subject: the first one behind the last that was expected
  size_t remote_ = 0;                                // where the last key was pressed
  std::map<std::string, Clock::time_point> pressed_; // by key
  std::chrono::duration<double> slowest_key_{};
  std::vector<Scene> book_;
  int successes_ = 0;
  int failures_ = 0;
};
