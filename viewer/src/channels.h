// The channels that can be watched: the services of a transport stream that is played, or what a script broadcasts.
#pragma once

#include <TVServiceTypes.h>

#include <functional>
#include <string>
#include <vector>

// Used on the main loop only.
class Channels {
public:
  // Plays the stream in `file` and shows its first service; without a file a script broadcasts one service. Throws
  // std::runtime_error if the file cannot be played.
  explicit Channels(const std::string &file);
  ~Channels();
  Channels(const Channels &) = delete;
  Channels &operator=(const Channels &) = delete;

  // Plays another stream, which stands still until it is told how much time passes. Returns whether that is possible.
  bool PlayByHand(const std::string &file);
  // Ends the stream. Nothing is told any more.
  void Close();
  bool ArePlayed() const { return played_; }
  // Shows the service of a channel, counted from 1. A channel without a service changes nothing.
  void Tune(int channel);
  // Calls `tuned` whenever another service is shown.
  void OnTuned(std::function<void()> tuned) { listeners_.push_back(std::move(tuned)); }

  // Calls `chosen` with the number of each channel that the user goes to, whether or not it has a service.
  void OnChosen(std::function<void(int channel)> chosen) { choices_.push_back(std::move(chosen)); }

  // Of the service that is shown.
  TCServiceId Service() const;
  // What to record of it.
  int Programme() const { return played_ ? service_ : 1; }
  // The target to attach to for the service's broadcaster application; empty if it has none.
  std::string DataTarget() const;

private:
  bool played_;
  int service_ = 0; // service_id
  std::vector<std::function<void()>> listeners_;
  std::vector<std::function<void(int)>> choices_;
};
