#include "key_name.h"

#include <cctype>

namespace {

std::string Text(const char *text) { return text ? text : ""; }

// Whether the key types one visible character.
bool IsCharacter(const std::string &text) { return text.size() == 1 && text[0] > ' ' && text[0] <= '~'; }

std::string Symbol(const Ecore_Event_Key &key) {
  std::string name = Text(key.keyname);
  if (name.rfind("XF86", 0) == 0) {
    return name;
  }
  for (const char *candidate : {key.string, key.key}) {
    if (IsCharacter(Text(candidate))) {
      return {static_cast<char>(std::tolower(candidate[0]))};
    }
  }
  return key.key ? key.key : name;
}

} // namespace

std::string KeyName(const void *event) { return Text(static_cast<const Ecore_Event_Key *>(event)->keyname); }

std::string KeySymbol(const void *event) {
  const auto &key = *static_cast<const Ecore_Event_Key *>(event);
  std::string prefix = key.modifiers & ECORE_EVENT_MODIFIER_CTRL ? "Ctrl+" : "";
  prefix += key.modifiers & ECORE_EVENT_MODIFIER_ALT ? "Alt+" : "";
  prefix += key.modifiers & ECORE_EVENT_MODIFIER_WIN ? "Super+" : "";
  return prefix + Symbol(key);
}
