#include "recordings_folder.h"

#include <cstdlib>
#include <fstream>

namespace lumio {

namespace {

std::string Variable(const char *name) {
  const char *value = std::getenv(name);
  return value ? value : "";
}

// The list has lines of the form XDG_VIDEOS_DIR="$HOME/Videos".
std::string FromUserDirectories(const std::string &home) {
  static const std::string kKey = "XDG_VIDEOS_DIR=\"";
  static const std::string kHome = "$HOME";
  const std::string configuration = Variable("XDG_CONFIG_HOME");
  std::ifstream list((configuration.empty() ? home + "/.config" : configuration) + "/user-dirs.dirs");
  for (std::string line; std::getline(list, line);) {
    if (line.compare(0, kKey.size(), kKey) != 0) {
      continue;
    }
    const std::string value = line.substr(kKey.size(), line.rfind('"') - kKey.size());
    return value.compare(0, kHome.size(), kHome) == 0 ? home + value.substr(kHome.size()) : value;
  }
  return "";
}

} // namespace

std::string RecordingsFolder() {
  const std::string home = Variable("HOME");
  for (std::string folder : {Variable("LUMIO_RECORDINGS"), Variable("XDG_VIDEOS_DIR"), FromUserDirectories(home)}) {
    if (!folder.empty()) {
      return folder;
    }
  }
  return home + "/Videos";
}

} // namespace lumio
