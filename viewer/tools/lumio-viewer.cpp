#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "application.h"
#include "console.h"

namespace {

constexpr char kUsage[] = R"(usage: lumio-viewer [--tv FILE] [--guide FILE] [--studio] [--grab] [--remote] [--still]
Opens a live-TV viewer on the display that DISPLAY names. Prints a line for each key and for each change on the screen.

  --tv FILE     play the transport stream in FILE instead of the built-in schedule
  --guide FILE  read the programme guide from FILE each time it is opened, one programme per line
  --studio      read orders from standard input instead of the built-in schedule; the order "help" lists them
  --grab        take all keys of the display, whichever window has the focus
  --remote      show the remote control from the start
  --still       stop the test card and all clocks, so that pictures can be compared

Keys, while the window has the focus. Characters count as the keyboard types them, in upper or lower case.
  F1                                      show the last ten keys
  F2                                      show the remote control, for the mouse
  Menu or m                               open the menu; use Up, Down and Return in it, and Escape to leave
  + and -, XF86Audio{Raise,Lower}Volume   volume
  Up, Down, Page Up, Page Down, 1 to 9,   channel
    XF86RaiseChannel, XF86LowerChannel
  i or XF86Info                           information
  g or XF86Option                         programme guide; move in it with Up and Down
  c                                       captions
  t                                       teletext, page 100
  o or XF86AudioRecord                    start and stop a recording
  r or XF86Red                            the broadcaster's application
  s or XF86Standby                        standby
  q or XF86PowerOff                       end the viewer
)";

bool SetSwitch(const char *argument, Options &options) {
  for (const auto &[name, option] : {std::pair{"--studio", &options.studio},
                                     {"--grab", &options.grab},
                                     {"--remote", &options.remote},
                                     {"--still", &options.still}}) {
    if (std::strcmp(argument, name) == 0) {
      *option = true;
      return true;
    }
  }
  return false;
}

int Refuse(const std::string &why) {
  std::fprintf(stderr, "lumio-viewer: %s\n%s", why.c_str(), kUsage);
  return EXIT_FAILURE;
}

} // namespace

int main(int argc, char **argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--help") == 0) {
      std::fputs(kUsage, stdout);
      return EXIT_SUCCESS;
    }
    const bool is_stream = std::strcmp(argv[i], "--tv") == 0;
    if (is_stream || std::strcmp(argv[i], "--guide") == 0) {
      if (++i == argc) {
        return Refuse("'" + std::string(argv[i - 1]) + "' needs the name of a file");
      }
      (is_stream ? options.stream : options.guide_source) = argv[i];
    } else if (!SetSwitch(argv[i], options)) {
      return Refuse("unknown argument '" + std::string(argv[i]) + "'");
    }
  }
  Console console;
  return RunViewer(console, options);
}
