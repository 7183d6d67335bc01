#include "fake_vconf.h"

#include <vconf.h>

#include "uncounted.h"

FakeVconf fake_vconf;

extern "C" int vconf_get_int(const char *key, int *value) {
  Uncounted uncounted;
  fake_vconf.calls.push_back(std::string("get ") + key);
  const auto found = fake_vconf.values.find(key);
  if (found == fake_vconf.values.end()) {
    return -1;
  }
  *value = found->second; // even if the read fails: the value then means nothing
  return fake_vconf.get_fails ? -1 : 0;
}

extern "C" int vconf_set_int(const char *key, int value) {
  Uncounted uncounted;
  fake_vconf.calls.push_back(std::string("set ") + key + " " + std::to_string(value));
  if (fake_vconf.set_fails) {
    return -1;
  }
  fake_vconf.values[key] = value;
  return 0;
}
