// Runs the viewer on a private display for the demo, presses keys, and records which expectations are met.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "book.h"
#include "display.h"
#include "program.h"

using lumio::Clock;

// Every wait is for a line of the viewer, and fails only after a time that is enough on a heavily loaded machine.
class Evening {
public:
  // Starts the display, the viewer and a watch on its banners. Keeps store, log and programme guide in `directory`, and
  // with `pictures` a picture of each scene.
  Evening(const std::string &directory, const std::vector<std::string> &under, bool pictures);

  // Begins a scene. Call it before the first expectation.
  void Heading(const std::string &text);

  // Presses a key of the remote that was not used last. The library checks the age of a key only if the previous key
  // came from the same device, so this one is never stale, even on a loaded machine.
  void Press(const std::string &key);
  void PressOnSameRemote(const std::string &key);
  void Release(const std::string &key);
  // Expects that the next line about a key names this key and kind ("press" or "release"), the modules that were asked
  // ("menu, volume"), the outcome ("taken by volume"), and the remote that was used last.
  void ExpectKey(const std::string &key, const std::string &kind, const std::string &asked, const std::string &outcome);
  // Presses and releases a key of the other remote. Expects this line for the press, and a release that nobody takes.
  void Tap(const std::string &key, const std::string &asked, const std::string &outcome);
  // Returns the longest time so far from a press to the line about it.
  std::chrono::duration<double> SlowestKey() const { return slowest_key_; }

  // Expects that the item of the viewer's screen shows `text`, after what was expected of the item before: on the
  // console, and in its own way on the canvas.
  void ExpectScreen(const std::string &item, const std::string &text);

  // Takes the picture of the scene, of what the viewer shows now.
  void Picture();

  // Gives an order to the viewer's studio; see viewer/src/studio.cpp.
  void Order(const std::string &order);

  // Expects that another process sees the banner word become `word`: the sum of 1 for the volume, 2 for the channel, 4
  // for the information and 8 for the record indicator.
  void ExpectBanners(int word);

  // Returns the path of the pipe that the viewer reads as its programme guide. The viewer waits until someone writes to
  // it.
  const std::string &GuideFile() const { return guide_file_; }

  // Runs another process of the television to its end. Expects that it succeeds and prints `answer`.
  void Run(const std::string &what, const std::vector<std::string> &command, const std::string &answer = "");

  // Ends the viewer with SIGTERM, as a desktop session does, and waits for it.
  void End();

  // Prints every expectation and whether it was met, and writes the page with the pictures. Returns whether all were
  // met.
  bool Summarise() const;

private:
  using Fields = std::vector<std::string>;

  // Returns the next line about this subject that `wanted` accepts; empty if none comes in time.
  Fields Find(const std::string &subject, const std::function<bool(const Fields &)> &wanted);
  // Returns the first line that says what the canvas has of the item, after the line that was found last.
  Fields FindCanvas(const std::string &item);
  Clock::time_point Deadline() const;
  void Record(const std::string &what, bool happened);

  std::string directory_;
  bool pictures_;
  std::string guide_file_;
  lumio::PrivateDisplay display_;
  std::map<std::string, std::string> environment_; // of the viewer and of the processes beside it
  lumio::Program viewer_;
  lumio::Program watch_;
  std::vector<Fields> lines_;                        // everything the viewer has printed
  std::map<std::string, size_t> next_;               // by subject: the index after the last line expected
  size_t remote_ = 0;                                // that was used last
  std::map<std::string, Clock::time_point> pressed_; // by key
  std::chrono::duration<double> slowest_key_{};
  size_t found_ = 0; // the line that was found last
  Book book_;
  int successes_ = 0;
  int failures_ = 0;
};
