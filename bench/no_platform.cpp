// A platform that does nothing, to be loaded ahead of the real one: what is left is the cost of the library itself.
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
