// The library's calls to the platform and to its handlers, in order. Fakes and probes write it.
#pragma once

#include <string>
#include <vector>

#include "uncounted.h"

inline std::vector<std::string> journal;

template <class... Parts> void Note(const Parts &...parts) {
  const Uncounted uncounted;
  std::string line;
  (line.append(parts), ...);
  journal.push_back(std::move(line));
}
