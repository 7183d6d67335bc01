// Reads, writes and watches the store on the command line.
#include "store.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace store = lumio::store;

namespace {

constexpr const char *kUsage = "usage: lumio-vconf get KEY\n"
                               "       lumio-vconf set KEY VALUE\n"
                               "       lumio-vconf unset KEY\n"
                               "       lumio-vconf list [PREFIX]\n"
                               "       lumio-vconf watch KEY...\n"
                               "\n"
                               "Reads, writes and watches the integers that the applications of this user share.\n"
                               "A KEY begins with memory/ (forgotten when the session ends) or db/ (kept).\n"
                               "list prints a line \"KEY VALUE\" for each key; watch prints such a line for each\n"
                               "KEY and then for each change, with \"unset\" for a key without a value.\n"
                               "\n"
                               "Exit status: 0 done; 1 the key is not set; 2 wrong usage; 3 the store or the\n"
                               "output failed.\n";

enum Exit { kDone = 0, kNotSet = 1, kWrongUsage = 2, kFailed = 3 };

using Arguments = std::vector<const char *>;

int Complain(const char *what, const std::string &why) {
  fprintf(stderr, "lumio-vconf: %s: %s\n", what, why.c_str());
  return kFailed;
}

int Finish(const char *key, int code) {
  if (code == 0) {
    return kDone;
  }
  Complain(key, store::Explain(key, code));
  return code == store::kAbsent ? kNotSet : code == store::kBadKey ? kWrongUsage : kFailed;
}

int GetKey(const Arguments &arguments) {
  int value = 0;
  const int code = store::Get(arguments[0], &value);
  if (code == 0) {
    printf("%d\n", value);
  }
  return Finish(arguments[0], code);
}

int SetKey(const Arguments &arguments) {
  char *end = nullptr;
  errno = 0;
  const long value = strtol(arguments[1], &end, 10);
  if (end == arguments[1] || *end != '\0' || errno != 0 || value < INT_MIN || value > INT_MAX) {
    Complain(arguments[1], "not an integer");
    return kWrongUsage;
  }
  return Finish(arguments[0], store::Set(arguments[0], static_cast<int>(value)));
}

int UnsetKey(const Arguments &arguments) { return Finish(arguments[0], store::Unset(arguments[0])); }

int ListKeys(const Arguments &arguments) {
  const Arguments everything(std::begin(store::kPrefixes), std::end(store::kPrefixes));
  int status = kDone;
  for (const char *prefix : arguments.empty() ? everything : arguments) {
    std::vector<std::pair<std::string, int>> entries;
    const int code = store::List(prefix, &entries);
    for (const auto &[key, value] : entries) {
      printf("%s %d\n", key.c_str(), value);
    }
    status = std::max(status, Finish(prefix, code));
  }
  return status;
}

struct Watched {
  const char *key;
  bool shown;
  std::optional<int> value;
};

// Prints the key if its value differs from what was printed last.
int Look(Watched *watched) {
  int value = 0;
  const int code = store::GetSettled(watched->key, &value);
  if (code != 0 && code != store::kAbsent) {
    return code;
  }
  const std::optional<int> now = code == 0 ? std::optional<int>(value) : std::nullopt;
  if (!watched->shown || watched->value != now) {
    printf("%s %s\n", watched->key, now ? std::to_string(*now).c_str() : "unset");
    *watched = {watched->key, true, now};
  }
  return 0;
}

// The first read of a key creates the file to watch.
int BeginToWatch(int notifications, const char *key) {
  int value = 0;
  std::string file;
  int code = store::GetSettled(key, &value);
  if (code == 0 || code == store::kAbsent) {
    code = store::FileToWatch(key, &file);
  }
  if (code == 0 && inotify_add_watch(notifications, file.c_str(), IN_MODIFY) < 0) {
    code = errno;
  }
  return code;
}

// Also ends when nobody reads the output any more, which a write would show only at the next change.
int WaitForChange(int notifications) {
  pollfd waited[] = {{STDOUT_FILENO, 0, 0}, {notifications, POLLIN, 0}};
  while (poll(waited, std::size(waited), -1) < 0) {
    if (errno != EINTR) {
      return Complain("poll", strerror(errno));
    }
  }
  if (waited[0].revents != 0) {
    raise(SIGPIPE);
    return Complain("standard output", strerror(EPIPE));
  }
  // It does not matter which file has changed or how many events this reads: the caller looks at all keys afterwards.
  char events[4096];
  return read(notifications, events, sizeof events) < 0 ? Complain("inotify", strerror(errno)) : kDone;
}

int WatchKeys(const Arguments &arguments) {
  const int notifications = inotify_init1(IN_CLOEXEC);
  std::vector<Watched> all;
  for (const char *key : arguments) {
    const int code = notifications < 0 ? errno : BeginToWatch(notifications, key);
    if (code != 0) {
      return Finish(key, code);
    }
    all.push_back({key, false, std::nullopt});
  }
  for (;;) {
    for (Watched &watched : all) {
      const int code = Look(&watched);
      if (code != 0) {
        return Finish(watched.key, code);
      }
    }
    if (fflush(stdout) != 0) {
      return kDone; // main() reports why
    }
    const int status = WaitForChange(notifications);
    if (status != kDone) {
      return status;
    }
  }
}

struct Command {
  const char *name;
  size_t fewest, most; // arguments
  int (*run)(const Arguments &);
};

constexpr Command kCommands[] = {{"get", 1, 1, GetKey},
                                 {"set", 2, 2, SetKey},
                                 {"unset", 1, 1, UnsetKey},
                                 {"list", 0, 1, ListKeys},
                                 {"watch", 1, SIZE_MAX, WatchKeys}};

int Run(const std::string &name, const Arguments &arguments) {
  if (name == "--help" || name == "-h") {
    fputs(kUsage, stdout);
    return kDone;
  }
  for (const Command &command : kCommands) {
    if (name == command.name && arguments.size() >= command.fewest && arguments.size() <= command.most) {
      return command.run(arguments);
    }
  }
  fputs(kUsage, stderr);
  return kWrongUsage;
}

} // namespace

int main(int argc, char **argv) {
  const int status = Run(argc > 1 ? argv[1] : "", Arguments(argv + std::min(argc, 2), argv + argc));
  if (fflush(stdout) != 0 || ferror(stdout)) {
    return Complain("standard output", strerror(errno));
  }
  return status;
}
