#include <dlog.h>

#include <systemd/sd-journal.h>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <new>
#include <string>
#include <string_view>

#include "without_sigpipe.h"

namespace {

constexpr int kAlwaysShown = 16;
constexpr const char *kOwnTag = "dlog";

struct Level {
  int priority;
  char letter;
  int syslog;
};

constexpr Level kLevels[] = {{2, 'V', LOG_DEBUG},   {3, 'D', LOG_DEBUG}, {4, 'I', LOG_INFO},
                             {5, 'W', LOG_WARNING}, {6, 'E', LOG_ERR},   {7, 'F', LOG_CRIT}};

const Level &LevelOf(int priority) {
  if (priority > 7) {
    return kLevels[4]; // above the platform's scale: an error that is shown at any level
  }
  return kLevels[std::max(priority, 2) - 2];
}

void AppendTime(std::string *line) {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  struct tm local;
  localtime_r(&now.tv_sec, &local);
  char seconds[32], fraction[16];
  strftime(seconds, sizeof seconds, "%Y-%m-%d %H:%M:%S", &local);
  snprintf(fraction, sizeof fraction, ".%03ld", now.tv_nsec / 1000000);
  *line += seconds;
  *line += fraction;
}

bool AppendFormatted(std::string *line, const char *format, va_list arguments) __attribute__((format(printf, 2, 0)));

bool AppendFormatted(std::string *line, const char *format, va_list arguments) {
  if (!format) {
    return false;
  }
  va_list again;
  va_copy(again, arguments);
  const int length = vsnprintf(nullptr, 0, format, arguments);
  if (length >= 0) {
    const size_t start = line->size();
    line->resize(start + static_cast<size_t>(length) + 1); // for the null that vsnprintf() appends
    vsnprintf(&(*line)[start], static_cast<size_t>(length) + 1, format, again);
    line->pop_back();
  }
  va_end(again);
  return length >= 0;
}

class Log {
public:
  int Print(int priority, const char *tag, const char *format, va_list arguments) __attribute__((format(printf, 4, 0)));
  // Call it in a new process. To ask for the ID in each line would be slow.
  void NoteProcess() { process_ = ' ' + std::to_string(getpid()) + ' '; }

private:
  void Configure();
  void OpenJournal();
  void OpenFile(const char *path);
  void ReadLevel(const char *level);
  void Complain(const char *format, ...) __attribute__((format(printf, 2, 3)));
  bool Compose(const Level &level, const char *tag, const char *format, va_list arguments)
      __attribute__((format(printf, 4, 0)));
  int Write();

  bool configured_ = false;
  int lowest_ = INT_MIN;
  int descriptor_ = STDERR_FILENO; // -1 for no output
  bool journal_ = false;
  bool cut_ = false; // the last line was written only in part
  std::string process_ = ' ' + std::to_string(getpid()) + ' ';
  std::string line_; // a member, to reuse its memory
};

std::mutex g_mutex;      // lines are composed and written one at a time, in the order of their times
Log &g_log = *new Log(); // never destroyed: threads may log while the program ends

[[maybe_unused]] const int g_fork_handlers = pthread_atfork([] { g_mutex.lock(); }, [] { g_mutex.unlock(); },
                                                            [] {
                                                              g_log.NoteProcess();
                                                              g_mutex.unlock();
                                                            });

int Log::Print(int priority, const char *tag, const char *format, va_list arguments) {
  if (!configured_) {
    configured_ = true;
    Configure();
  }
  if (descriptor_ < 0 || (priority < lowest_ && priority < kAlwaysShown)) {
    return 0;
  }
  return Compose(LevelOf(priority), tag, format, arguments) ? Write() : -1;
}

void Log::Configure() {
  const char *target = getenv("LUMIO_LOG"), *level = getenv("LUMIO_LOG_LEVEL");
  const std::string_view name = target ? target : "";
  if (name == "none") {
    descriptor_ = -1;
  } else if (name == "journal") {
    OpenJournal();
  } else if (!name.empty() && name != "stderr") {
    OpenFile(target);
  }
  if (level && level[0] != '\0') {
    ReadLevel(level);
  }
}

void Log::OpenJournal() {
  const int stream = sd_journal_stream_fd(program_invocation_short_name, LOG_INFO, 1);
  if (stream < 0) {
    Complain("cannot reach the journal: %s; logging to stderr", strerror(-stream));
    return;
  }
  descriptor_ = stream;
  journal_ = true;
}

void Log::OpenFile(const char *path) {
  const int file = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  if (file < 0) {
    Complain("cannot open %s: %s; logging to stderr", path, strerror(errno));
    return;
  }
  descriptor_ = file;
}

// The level is a number, or the letter that a line shows for it.
void Log::ReadLevel(const char *text) {
  char *end = nullptr;
  const long number = strtol(text, &end, 10);
  if (*end == '\0' && number >= 0 && number <= kAlwaysShown) {
    lowest_ = static_cast<int>(number);
    return;
  }
  for (const Level &level : kLevels) {
    if (text[0] == level.letter && text[1] == '\0') {
      lowest_ = level.priority;
      return;
    }
  }
  Complain("LUMIO_LOG_LEVEL must be a number from 0 to %d or one of V D I W E F, not \"%s\"; logging all", kAlwaysShown,
           text);
}

void Log::Complain(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  try {
    Print(kAlwaysShown, kOwnTag, format, arguments);
  } catch (const std::bad_alloc &) {
    // The remaining settings still take effect.
  }
  va_end(arguments);
}

bool Log::Compose(const Level &level, const char *tag, const char *format, va_list arguments) {
  line_ = cut_ ? "\n" : "";
  if (journal_) {
    line_ += {'<', static_cast<char>('0' + level.syslog), '>'};
  }
  const size_t start = line_.size();
  AppendTime(&line_);
  line_ += process_; // several processes may share one file
  line_ += {level.letter, ' '};
  line_ += tag ? tag : "-";
  line_ += ": ";
  const bool formatted = AppendFormatted(&line_, format, arguments);
  while (line_.back() == '\n') {
    line_.pop_back();
  }
  for (size_t end = start; (end = line_.find('\n', end)) != std::string::npos;) { // one line per call
    line_[end] = ' ';
  }
  line_ += '\n';
  return formatted;
}

int Log::Write() {
  const lumio::WithoutSigpipe quietly; // the reader of the log may be gone
  const char *rest = line_.data();
  size_t left = line_.size();
  while (left > 0) {
    const ssize_t written = write(descriptor_, rest, left);
    if (written >= 0) {
      rest += written;
      left -= static_cast<size_t>(written);
    } else if (errno == EAGAIN) {
      pollfd room = {descriptor_, POLLOUT, 0};
      poll(&room, 1, -1);
    } else if (errno != EINTR) {
      break;
    }
  }
  if (left < line_.size()) {
    cut_ = left > 0;
  }
  return left == 0 ? static_cast<int>(line_.size()) : -1;
}

} // namespace

extern "C" int __dlog_print(int, int priority, const char *tag, const char *format, ...) {
  const int error = errno; // callers may log before they read the errno of a failure
  va_list arguments;
  va_start(arguments, format);
  int written = -1;
  try {
    const std::lock_guard<std::mutex> lock(g_mutex);
    errno = error;
    written = g_log.Print(priority, tag, format, arguments);
  } catch (const std::bad_alloc &) {
    // Only this line is lost.
  }
  va_end(arguments);
  errno = error;
  return written;
}
