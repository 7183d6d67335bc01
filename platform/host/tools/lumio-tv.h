// The commands of lumio-tv, each in a file of its own.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace lumio::tool {

enum Exit { kDone = 0, kFailed = 1, kWrongUsage = 2 };

using Arguments = std::vector<std::string>; // after the command's name

// Each returns the process's exit status.
int Info(const Arguments &arguments);
int Watch(const Arguments &arguments);

// Texts that several commands print.
std::string TimeText(std::int64_t time); // seconds since the epoch, as 2026-11-21T20:15:00Z
std::string DurationText(unsigned seconds);
std::string LanguageText(int language); // three letters, the last one lowest
std::string OneLine(std::string text);  // with its rows separated by " / "

// Prints an error on stderr. @return kFailed
int Complain(const std::string &what, const std::string &why);

} // namespace lumio::tool
