#include "x_connection.h"

#include <Ecore_Evas.h>
#include <Ecore_X.h>
#include <Edje.h>
#include <Efreet.h>
#include <X11/Xlib.h>
#include <X11/extensions/Xext.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace {

// X can no longer be used, not even to clean up.
[[noreturn]] void ServerGone(void *) {
  std::fflush(stdout);
  std::fprintf(stderr, "lumio-viewer: the X server has gone, or has closed the connection\n");
  _exit(EXIT_FAILURE);
}

// Ecore asks for extensions that a server may lack; Xlib would print a line for each.
int MissNothing(Display *, const char *, const char *) { return 0; }

} // namespace

XConnection::XConnection() {
  XSetExtensionErrorHandler(MissNothing);
  open_ = ecore_x_init(nullptr) > 0;
  if (open_) {
    ecore_x_io_error_handler_set(ServerGone, nullptr);
    efreet_cache_disable(); // otherwise Edje's search for icons would start a service of the session
    ecore_evas_init();
    eina_log_domain_level_set("evas_main", EINA_LOG_LEVEL_CRITICAL); // a busy machine is no error
    edje_init();
  }
}

XConnection::~XConnection() {
  if (open_) {
    edje_shutdown();
    ecore_evas_shutdown();
    ecore_x_shutdown();
  }
}
