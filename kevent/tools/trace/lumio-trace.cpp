// lumio-trace: starts a program with a library in front of liblumio-kevent that tells what the modules do.
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

#include "needed.h"
#include "options.h"

namespace {

using lumio::trace::Nanoseconds;
using lumio::trace::Options;

constexpr char kUsage[] = R"(usage: lumio-trace [OPTION]... PROGRAM [ARGUMENT]...
Runs PROGRAM and tells what the modules that it holds do with liblumio-kevent, and what they do wrong.

  --keys           tell of keys; with neither this nor --tv, of everything
  --tv             tell of the TV service's notifications
  --only=MODULE    tell of this domain or module only
  --dropped        of keys, tell of those only that the library dropped
  --json           one JSON object per line
  -o FILE          write to FILE instead of standard error
  --stall=TIME     tell of what keeps the main loop for longer; the default is 100ms, 0 is never
  --abort          end the program with the first mistake
  --record=FILE    write the program's input to FILE, for lumio-replay
  --summary        tell the state at the end, as SIGUSR1 does at any time
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

// A descriptor out of the way of those that the program opens; the library closes it when the program starts another.
int MoveAway(int descriptor) {
  constexpr int kAway = 200;
  const int moved = fcntl(descriptor, F_DUPFD, kAway);
  return moved >= 0 ? moved : descriptor;
}

// Negative when it cannot be written to.
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

// The file that exec would start; empty when there is none.
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

// A sanitizer insists on being the first library of all.
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

// What lumio-replay asks for, which runs this command.
void TakeReplay(Options &options) {
  const char *replay = getenv(lumio::trace::kReplayVariable);
  if (!replay) {
    return;
  }
  std::istringstream words(replay);
  words >> options.speed >> options.replay_keys >> std::ws;
  std::getline(words, options.replay);
  unsetenv(lumio::trace::kReplayVariable);
}

int Run(Options &options, char **command) {
  const std::string library = FindLibrary();
  if (library.empty()) {
    Complain("liblumio-trace.so is neither beside this program nor in " LUMIO_TRACE_PLACE);
    return kCannotRun;
  }
  if (library.find_first_of(" :") != std::string::npos) {
    Complain("the dynamic linker cannot load " + library + ": a blank or a colon is in its path");
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
  std::optional<int> status; // to end with, without running anything
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
      request.status = Complain("'" + std::string(optarg) + "' is no time: 100ms and 2s are");
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
