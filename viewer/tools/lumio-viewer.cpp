#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "application.h"
#include "console.h"

namespace {

constexpr char kUsage[] = R"(usage: lumio-viewer [--guide FILE] [--studio]
A live-TV viewer on the display that DISPLAY names. Prints a line for each key.

  --guide FILE  read the programme guide from FILE whenever it is opened
  --studio      take from standard input what is broadcast and recorded

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
      std::fprintf(stderr, "lumio-viewer: '%s' is not understood\n%s", argv[i], kUsage);
      return EXIT_FAILURE;
    }
  }
  Console console;
  return RunViewer(console, options);
}
