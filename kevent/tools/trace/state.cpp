#include "state.h"

#include "rooms.h"
#include "session.h"
#include "work.h"

namespace lumio::trace {

void PrintState() {
  Text text;
  if (!TheOptions().json) {
    AppendHead(text, WallClock(), "STATE");
    AppendRunning(text);
    text.Append("\n");
    Put(text);
  }
  PrintKeyState(text);
  PrintBannerState(text);
  PrintTvState(text);
  PrintPvrState(text);
  PrintStateState(text);
  PrintStalls(text);
  Put(text);
}

} // namespace lumio::trace
