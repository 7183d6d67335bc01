#include <vconf.h>

#include "store.h"

#include <dlog.h>

#include <cerrno>
#include <new>

namespace {

// Runs the operation, logs a failure and returns what vconf returns. An absent key is not logged.
template <class Operation> int Run(const char *verb, const char *key, const Operation &operation) {
  const char *name = key ? key : "(null)";
  try {
    const int code = operation();
    if (code != 0 && code != lumio::store::kAbsent) {
      __dlog_print(0, 16, "vconf", "cannot %s %s: %s\n", verb, name, lumio::store::Explain(key, code).c_str());
    }
    return code == 0 ? 0 : -1;
  } catch (const std::bad_alloc &) {
    __dlog_print(0, 16, "vconf", "cannot %s %s: out of memory\n", verb, name);
    return -1;
  }
}

} // namespace

extern "C" int vconf_get_int(const char *key, int *value) {
  return Run("get", key, [&] { return value ? lumio::store::Get(key, value) : EFAULT; });
}

extern "C" int vconf_set_int(const char *key, int value) {
  return Run("set", key, [&] { return lumio::store::Set(key, value); });
}
