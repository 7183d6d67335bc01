#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "application.h"
#include "console.h"

namespace {

constexpr char kUsage[] = R"(usage: lumio-viewer [--guide FILE] [--studio]
Runs the sample modules of a live-TV viewer on the X display that DISPLAY names. Prints a line for each key.

  --guide FILE  read the programme guide from FILE each time it is opened
  --studio      read orders from standard input that say what is broadcast and recorded

Keys: Menu or m, Up, Down, Return, Escape   the menu
      volume keys, + and -                  volume
      Page Up, Page Down, Up, Down, 1 to 9  channel
      i information, g programme guide, c captions, r the broadcaster's application
      s standby, q end
)";

} // namespace

int main(int argc, char **argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--guide") == 0 && i + 1 < argc) {
      options.guide_source = argv[++i];
    } else if (std::strcmp(argv[i], "--studio") == 0) {
      options.studio = true;
    } else if (std::strcmp(argv[i], "--help") == 0) {
      std::fputs(kUsage, stdout);
      return EXIT_SUCCESS;
    } else {
      std::fprintf(stderr, "lumio-viewer: invalid argument '%s'\n%s", argv[i], kUsage);
      return EXIT_FAILURE;
    }
  }
  Console console;
  return RunViewer(console, options);
}
