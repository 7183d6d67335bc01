// Reads the store.
#pragma once

#include <vconf.h>

#include <optional>
#include <string>

constexpr const char *kBanners = "memory/lumio/lumio_banner_state_1";

inline std::optional<int> Value(const std::string &key) {
  int value = 0;
  return vconf_get_int(key.c_str(), &value) == 0 ? std::optional<int>(value) : std::nullopt;
}
