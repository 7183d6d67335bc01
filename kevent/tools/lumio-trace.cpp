// lumio-trace: starts a program with a library in front of liblumio-kevent that prints what the modules do.
#include <fcntl.h>
#include <getopt.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <sstream>
#include <string>

#include "trace/needed.h"
#include "trace/options.h"

namespace {

using lumio::trace::Nanoseconds;
using lumio::trace::Options;

constexpr char kUsage[] = R"(usage: lumio-trace [OPTION]... PROGRAM [ARGUMENT]...
Runs PROGRAM and prints how its modules use liblumio-kevent, and the mistakes that they make.

  --keys           show keys only (default: everything)
  --tv             show the TV service's notifications only; with --keys, both
  --only=MODULE    show only this domain or module
  --dropped        of the keys, show only those that the library drops
  --json           write one JSON object per line
  -o FILE          write to FILE instead of standard error
  --stall=TIME     report what keeps the main loop at least this long (default: 100ms; 0: off)
  --abort          end the program at the first mistake
  --record=FILE    write the program's input to FILE, for lumio-replay
  --summary        print the state at the end; SIGUSR1 prints it at any time
)";

constexpr int kUsageError = 2;
constexpr int kCannotRun = 126;
constexpr int kNotFound = 127;

int Complain(const std::string &what) {
  fprintf(stderr, "lumio-trace: %s\n", what.c_str());
  return kUsageError;
}

// "100ms", "2s", "0"
std::optional<Nanoseconds> ReadTime(const char *text) {
  char *unit = nullptr;
  errno = 0;
  const long long number = strtoll(text, &unit, 10);
  if (unit == text || errno != 0 || number < 0 || number > 1000000) {
    return std::nullopt;
  }
  if (strcmp(unit, "s") == 0) {
    return number * lumio::trace::kSecond;
  }
  if (strcmp(unit, "ms") == 0 || (number == 0 && *unit == '\0')) {
    return number * lumio::trace::kMillisecond;
  }
  return std::nullopt;
}

// Moves the descriptor above those that the program opens. It is closed when the program starts another program.
int MoveAway(int descriptor) {
  constexpr int kAway = 200;
  const int moved = fcntl(descriptor, F_DUPFD, kAway);
  return moved >= 0 ? moved : descriptor;
}

// Returns a negative number if the file cannot be written to.
int OpenOutput(const char *path) {
  const int descriptor = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
  if (descriptor < 0) {
    Complain("cannot write to " + std::string(path) + ": " + strerror(errno));
    return -1;
  }
  const int moved = MoveAway(descriptor);
  if (moved != descriptor) {
    close(descriptor);
  }
  return moved;
}

std::string OwnDirectory() { return std::filesystem::read_symlink("/proc/self/exe").parent_path(); }

std::string FindLibrary() {
  for (const char *place : {"", LUMIO_TRACE_PLACE}) {
    const std::filesystem::path library = std::filesystem::path(OwnDirectory()) / place / "liblumio-trace.so";
    std::error_code error;
    if (std::filesystem::exists(library, error)) {
      return std::filesystem::canonical(library, error);
    }
  }
  return "";
}

// Returns the file that exec would start; empty if there is none.
std::string FindProgram(const std::string &name) {
  if (name.find('/') != std::string::npos) {
    return name;
  }
  const char *path = getenv("PATH");
  std::string rest = path ? path : "/bin:/usr/bin";
  while (!rest.empty()) {
    const size_t end = rest.find(':');
    std::string candidate = rest.substr(0, end) + "/" + name;
    if (access(candidate.c_str(), X_OK) == 0) {
      return candidate;
    }
    rest = end == std::string::npos ? "" : rest.substr(end + 1);
  }
  return "";
}

// A sanitizer must be the first library to be loaded.
std::string SanitizerOf(const std::string &program) {
  for (const std::string &library : lumio::trace::NeededLibraries(program)) {
    for (const char *runtime : {"libasan.so", "libtsan.so", "libclang_rt.asan", "libclang_rt.tsan"}) {
      if (library.rfind(runtime, 0) == 0) {
        return library;
      }
    }
  }
  return "";
}

std::string Preload(const std::string &own, const std::string &before, const std::string &program) {
  std::string preload;
  for (const std::string &library : {SanitizerOf(program), SanitizerOf(own), before, own}) {
    if (!library.empty() && preload.find(library) == std::string::npos) {
      preload += (preload.empty() ? "" : ":") + library;
    }
  }
  return preload;
}

// Reads the settings of lumio-replay, which runs this command.
void TakeReplay(Options &options) {
  const char *replay = getenv(lumio::trace::kReplayVariable);
  if (!replay) {
    return;
  }
  std::istringstream words(replay);
  words >> options.speed >> options.skip_waits >> options.replay_keys >> std::ws;
  std::getline(words, options.replay);
  unsetenv(lumio::trace::kReplayVariable);
}

int Run(Options &options, char **command) {
  const std::string library = FindLibrary();
  if (library.empty()) {
    Complain("liblumio-trace.so is not beside this program and not in " LUMIO_TRACE_PLACE);
    return kCannotRun;
  }
  if (library.find_first_of(" :") != std::string::npos) {
    Complain("the dynamic linker cannot load " + library + ": its path contains a space or a colon");
    return kCannotRun;
  }
  TakeReplay(options);
  const char *before = getenv("LD_PRELOAD");
  options.preload = before ? before : "";
  setenv("LD_PRELOAD", Preload(library, options.preload, FindProgram(command[0])).c_str(), 1);
  setenv(lumio::trace::kVariable, Write(options).c_str(), 1);
  execvp(command[0], command);
  const int error = errno;
  Complain("cannot start " + std::string(command[0]) + ": " + strerror(error));
  return error == ENOENT ? kNotFound : kCannotRun;
}

enum { kKeys = 256, kTv, kOnly, kDropped, kJson, kStall, kAbort, kSummary, kRecord, kHelp };

constexpr option kOptions[] = {
    {"keys", no_argument, nullptr, kKeys},
    {"tv", no_argument, nullptr, kTv},
    {"only", required_argument, nullptr, kOnly},
    {"dropped", no_argument, nullptr, kDropped},
    {"json", no_argument, nullptr, kJson},
    {"stall", required_argument, nullptr, kStall},
    {"abort", no_argument, nullptr, kAbort},
    {"summary", no_argument, nullptr, kSummary},
    {"record", required_argument, nullptr, kRecord},
    {"help", no_argument, nullptr, kHelp},
    {},
};

struct Request {
  Options options;
  bool keys = false;
  bool tv = false;
  int output = STDERR_FILENO;
  std::optional<int> status; // exit status, if the program is not to be started
};

void Obey(int option, Request &request) {
  switch (option) {
  case kKeys:
    request.keys = true;
    break;
  case kTv:
    request.tv = true;
    break;
  case kOnly:
    request.options.only = optarg;
    break;
  case kDropped:
    request.options.dropped = true;
    break;
  case kJson:
    request.options.json = true;
    break;
  case kAbort:
    request.options.abort = true;
    break;
  case kSummary:
    request.options.summary = true;
    break;
  case kStall:
    if (const auto stall = ReadTime(optarg)) {
      request.options.stall = *stall;
    } else {
      request.status = Complain("'" + std::string(optarg) + "' is not a time: write 100ms or 2s");
    }
    break;
  case 'o':
    request.output = OpenOutput(optarg);
    if (request.output < 0) {
      request.status = 1;
    }
    break;
  case kRecord:
    request.options.record = OpenOutput(optarg);
    if (request.options.record < 0) {
      request.status = 1;
    }
    break;
  case kHelp:
    fputs(kUsage, stdout);
    request.status = EXIT_SUCCESS;
    break;
  default:
    fputs(kUsage, stderr);
    request.status = kUsageError;
  }
}

} // namespace

int main(int argc, char **argv) {
  Request request;
  int option;
  while (!request.status && (option = getopt_long(argc, argv, "+o:", kOptions, nullptr)) != -1) {
    Obey(option, request);
  }
  if (!request.status && optind == argc) {
    Obey('?', request);
  }
  if (request.status) {
    return *request.status;
  }
  if (request.keys || request.tv) {
    request.options.keys = request.keys;
    request.options.tv = request.tv;
    request.options.others = false;
  }
  request.options.output = request.output == STDERR_FILENO ? MoveAway(STDERR_FILENO) : request.output;
  return Run(request.options, argv + optind);
}
