// The commands of lumio-tv, each in a file of its own.
#pragma once

#include <string>
#include <vector>

namespace lumio::tool {

enum Exit { kDone = 0, kFailed = 1, kWrongUsage = 2 };

using Arguments = std::vector<std::string>; // behind the command's name

// Each returns the process's exit status.
int Info(const Arguments &arguments);
int Make(const Arguments &arguments);

// Says on stderr what went wrong. @return kFailed
int Complain(const std::string &what, const std::string &why);

} // namespace lumio::tool
