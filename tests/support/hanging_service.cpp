// Preloaded into the viewer: a TV service that never stops.
#include <lumio-host/tv-control.h>

#include <unistd.h>

#include <cstdio>

void lumio::tv::Shutdown() {
  std::printf("the TV service hangs\n");
  std::fflush(stdout);
  while (true) {
    pause();
  }
}
