#include "work.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "efl.h"
#include "record.h"
#include "session.h"

namespace lumio::trace {

namespace {

constexpr int kDeepest = 32;                            // nested callbacks whose names are kept
constexpr int kStalls = 16;                             // number of stalls that are kept
constexpr Nanoseconds kLongSilence = 50 * kMillisecond; // what a replay repeats
constexpr Nanoseconds kNoticeable = 5 * kMillisecond;   // wait; the X server counts milliseconds

struct Running {
  const char *module;
  const char *symbol;
  Nanoseconds begin;
};

struct Stall {
  char who[160];
  Nanoseconds begin;
  Nanoseconds end;
  int cost; // keys that waited for it
};

// All of this belongs to the main-loop thread; a signal handler on that thread may read it.
Running g_running[kDeepest];
int g_depth;
Stall g_stalls[kStalls];
int g_stall_count;
Nanoseconds g_last_sign; // when the main loop last did something
char g_last_symbol[160]; // the callback that ended last

void PrintStall(const char *who, Nanoseconds duration, bool known) {
  Text text;
  if (TheOptions().json) {
    AppendHead(text, WallClock(), known ? "stall" : "silence");
    text.Append(",\"%s\":", known ? "by" : "after");
    text.AppendQuoted(who);
    text.Append(",\"took_ms\":");
    text.AppendMilliseconds(duration);
    text.Append("}\n");
  } else {
    AppendHead(text, WallClock(), "STALL");
    if (known) {
      text.AppendClean(who);
      text.Append(" kept the main loop for ");
      text.AppendDuration(duration);
    } else {
      text.Append("the main loop was silent for ");
      text.AppendDuration(duration);
      text.Append(*who ? ", last seen after " : ", and nothing was seen before");
      text.AppendClean(who);
    }
    text.Append("\n");
  }
  Put(text);
}

void Remember(const char *who, Nanoseconds begin, Nanoseconds end) {
  Stall &stall = g_stalls[g_stall_count++ % kStalls];
  snprintf(stall.who, sizeof stall.who, "%s", who);
  stall.begin = begin;
  stall.end = end;
  stall.cost = 0;
}

// A session that is recorded or replayed begins with the first idle moment: what the program does before is not part
// of it.
bool IsTooLong(Nanoseconds duration) {
  const Options &options = TheOptions();
  const bool is_session = options.record >= 0 || !options.replay.empty();
  return options.stall > 0 && duration >= options.stall && (!is_session || HasRecordBegun());
}

void NameCallback(char (&who)[160], const char *module, const char *symbol) {
  if (*module) {
    snprintf(who, sizeof who, "%s (%s)", symbol, module);
  } else {
    snprintf(who, sizeof who, "%s", symbol);
  }
}

} // namespace

Work::Work(const char *module, const char *symbol) : begin_(Now()), on_main_loop_(IsMainLoopThread()) {
  if (!on_main_loop_) {
    return;
  }
  if (g_depth < kDeepest) {
    g_running[g_depth] = {module, symbol, begin_};
  }
  ++g_depth;
  hold_ = BeginHold(CountCallback());
  begin_ = hold_.begin;
  g_last_sign = begin_;
}

Nanoseconds Work::End() {
  if (end_ == kNotKnown) {
    if (on_main_loop_) {
      EndHold(hold_);
    }
    end_ = Now();
    if (on_main_loop_) { // a callback that ran within it, or that ran the loop, has kept the loop itself
      own_ = OwnTime(hold_, end_ - std::max(begin_, g_last_sign));
      RecordHold(hold_.callback, begin_, end_, own_);
    }
  }
  return end_ - begin_;
}

Work::~Work() {
  if (!on_main_loop_) {
    return;
  }
  End();
  --g_depth;
  if (g_depth < kDeepest) {
    NameCallback(g_last_symbol, g_running[g_depth].module, g_running[g_depth].symbol);
    if (IsTooLong(own_)) {
      PrintStall(g_last_symbol, own_, true);
      Remember(g_last_symbol, end_ - own_, end_);
    }
  }
  g_last_sign = end_;
}

void NoteArrival(Nanoseconds posted) {
  const Nanoseconds now = Now();
  const bool is_known = posted != kNotKnown && g_last_sign != 0;
  const Nanoseconds silence = SilenceBefore(is_known ? now - std::max(posted, g_last_sign) : 0);
  if (silence >= kLongSilence) {
    RecordSilence(silence);
  }
  if (IsTooLong(silence)) {
    PrintStall(g_last_symbol, silence, false);
    char who[160];
    snprintf(who, sizeof who, "what the main loop did after %.100s", g_last_symbol);
    Remember(who, now - silence, now);
  }
  g_last_sign = now;
}

void NoteIdle() { g_last_sign = Now(); }

int StallSince(Nanoseconds posted) {
  for (int i = g_stall_count - 1; i >= 0 && i >= g_stall_count - kStalls; --i) {
    if (posted != kNotKnown && g_stalls[i % kStalls].end - posted >= kNoticeable) {
      return i + 1;
    }
  }
  return 0;
}

const char *WaitedFor(int stall) {
  if (stall < 1 || stall > g_stall_count || stall <= g_stall_count - kStalls) {
    return nullptr;
  }
  Stall &known = g_stalls[(stall - 1) % kStalls];
  ++known.cost;
  return known.who;
}

void AppendRunning(Text &text) {
  if (g_depth == 0) {
    text.Append("no callback is running on the main loop");
  } else {
    const Running &running = g_running[std::min(g_depth, kDeepest) - 1];
    text.AppendClean(running.symbol);
    text.Append(" (%s) runs for ", *running.module ? running.module : "application");
    text.AppendDuration(Now() - running.begin);
  }
}

void PrintStalls(Text &text) {
  for (int i = std::max(0, g_stall_count - kStalls); i < g_stall_count; ++i) {
    const Stall &stall = g_stalls[i % kStalls];
    if (TheOptions().json) {
      text.Append("{\"event\":\"state\",\"stall\":");
      text.AppendQuoted(stall.who);
      text.Append(",\"took_ms\":");
      text.AppendMilliseconds(stall.end - stall.begin);
      text.Append(",\"cost\":%d}\n", stall.cost);
    } else {
      text.Append("%s", kMore);
      text.AppendDuration(stall.end - stall.begin);
      text.Append(" that ");
      text.AppendClean(stall.who);
      text.Append(" kept the main loop, %d keys waited\n", stall.cost);
    }
  }
}

} // namespace lumio::trace
