#include "options.h"

#include <cstdlib>
#include <sstream>

namespace lumio::trace {

// One "name=value" per line: values contain names that users chose, which may contain any character but a line feed.
std::string Write(const Options &options) {
  std::ostringstream text;
  text << "keys=" << options.keys << "\nothers=" << options.others << "\ntv=" << options.tv
       << "\ndropped=" << options.dropped << "\njson=" << options.json << "\nabort=" << options.abort
       << "\nsummary=" << options.summary << "\nstall=" << options.stall << "\nonly=" << options.only
       << "\noutput=" << options.output << "\nrecord=" << options.record << "\nreplay=" << options.replay
       << "\nspeed=" << options.speed << "\nskip_waits=" << options.skip_waits
       << "\nreplay_keys=" << options.replay_keys << "\npreload=" << options.preload << "\n";
  return text.str();
}

Options ReadOptions(const std::string &text) {
  Options options;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const size_t separator = line.find('=');
    const std::string name = line.substr(0, separator);
    const std::string value = separator == std::string::npos ? "" : line.substr(separator + 1);
    const long long number = strtoll(value.c_str(), nullptr, 10);
    if (name == "only") {
      options.only = value;
    } else if (name == "preload") {
      options.preload = value;
    } else if (name == "stall") {
      options.stall = number;
    } else if (name == "output") {
      options.output = static_cast<int>(number);
    } else if (name == "record") {
      options.record = static_cast<int>(number);
    } else if (name == "speed") {
      options.speed = strtod(value.c_str(), nullptr);
    } else if (name == "replay") {
      options.replay = value;
    } else if (name == "replay_keys") {
      options.replay_keys = static_cast<int>(number);
    }
    for (const auto &[flag_name, flag] :
         {std::pair("keys", &Options::keys), std::pair("others", &Options::others), std::pair("tv", &Options::tv),
          std::pair("dropped", &Options::dropped), std::pair("json", &Options::json),
          std::pair("abort", &Options::abort), std::pair("summary", &Options::summary),
          std::pair("skip_waits", &Options::skip_waits)}) {
      if (name == flag_name) {
        options.*flag = number != 0;
      }
    }
  }
  return options;
}

} // namespace lumio::trace
