#pragma once

#include <string>
#include <vector>

namespace lumio {

// Joins the words with the separator between them.
inline std::string Join(const std::vector<std::string> &words, const char *separator) {
  std::string joined;
  for (const std::string &word : words) {
    joined.append(&word == words.data() ? "" : separator).append(word);
  }
  return joined;
}

} // namespace lumio
