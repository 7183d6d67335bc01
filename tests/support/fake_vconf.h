// A store in memory. It records its calls; a test can make them fail.
#pragma once

#include <map>
#include <string>
#include <vector>

struct FakeVconf {
  std::map<std::string, int> values; // an absent key cannot be read
  bool get_fails = false;
  bool set_fails = false;
  std::vector<std::string> calls; // "get KEY" or "set KEY VALUE"
};

extern FakeVconf fake_vconf;
