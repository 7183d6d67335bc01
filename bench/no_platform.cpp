// A platform that does nothing. Preloaded before the real one, it leaves the cost of the library alone.
#include <dlog.h>
#include <vconf.h>

extern "C" {

int __dlog_print(int, int, const char *, const char *, ...) { return 0; }

int vconf_get_int(const char *, int *value) {
  *value = 0;
  return 0;
}

int vconf_set_int(const char *, int) { return 0; }

} // extern "C"
