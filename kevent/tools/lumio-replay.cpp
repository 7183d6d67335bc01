// lumio-replay: plays a recording of lumio-trace to a program, on a private display.
#include <display.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "temporary_directory.h"
#include "trace/options.h"
#include "trace/recording.h"

namespace {

using lumio::trace::EventClass;
using lumio::trace::RecordedEvent;
using lumio::trace::Recording;

constexpr char kUsage[] = R"(usage: lumio-replay [--speed=NUMBER | --skip-waits] [OPTION]... FILE PROGRAM [ARGUMENT]...
Runs PROGRAM on a private display and plays to it the session that lumio-trace --record=FILE recorded.

  --speed=NUMBER  play NUMBER times as fast; decisions are the same only at speed 1
  --skip-waits    let the program's clock jump over waits; decisions are the same
  OPTION          an option of lumio-trace, for the trace of the replay
)";

constexpr int kUsageError = 2;

struct Request {
  std::string speed = "1";
  bool skip_waits = false;
  std::vector<std::string> trace_options;
  std::string file;
  std::vector<std::string> command;
};

// Returns the device of a key or a plug; empty for other events.
std::string DeviceOf(const RecordedEvent &event) {
  return event.Is(EventClass::kKey) ? event.Word(1) : event.Is(EventClass::kPlug) ? event.Word(0) : "";
}

// Connects the device, unless the session connects it.
void AddDevice(lumio::DisplayOptions &options, const std::string &name, bool is_plugged_later) {
  auto device = std::find_if(options.devices.begin(), options.devices.end(),
                             [&](const lumio::InputDevice &one) { return one.name == name; });
  if (device == options.devices.end()) {
    device = options.devices.insert(device, {name, lumio::Plug::kAttached});
  }
  device->plug = is_plugged_later ? lumio::Plug::kUnplugged : lumio::Plug::kAttached;
}

// Returns a television's devices and those of the recording, as they were when it began.
lumio::DisplayOptions DisplayFor(const Recording &recording) {
  lumio::DisplayOptions options;
  std::set<std::string> known;
  if (!recording.device.empty() && known.insert(recording.device).second) {
    AddDevice(options, recording.device, false);
  }
  for (const RecordedEvent &event : recording.events) {
    const std::string name = DeviceOf(event);
    if (!name.empty() && known.insert(name).second) {
      AddDevice(options, name, event.kind == "plug");
    }
  }
  return options;
}

// Makes the device the one that sent the last key, so that the server announces it no more before its first one.
void UseDevice(lumio::PrivateDisplay &display, const std::string &name) {
  if (!name.empty()) {
    display.Press(name, "F1");
    display.Release(name, "F1");
  }
}

using Variables = std::vector<std::pair<std::string, std::string>>;

[[noreturn]] void RunProgram(const Request &request, const Variables &environment, int player,
                             const std::string &store) {
  for (const auto &[name, value] : environment) {
    setenv(name.c_str(), value.c_str(), 1);
  }
  setenv("LUMIO_VCONF_DIR", store.c_str(), 1);
  const std::string replay = request.speed + (request.skip_waits ? " 1 " : " 0 ") + std::to_string(player) + " " +
                             std::filesystem::absolute(request.file).string();
  setenv(lumio::trace::kReplayVariable, replay.c_str(), 1);
  std::vector<std::string> words = {std::filesystem::read_symlink("/proc/self/exe").parent_path() / "lumio-trace"};
  words.insert(words.end(), request.trace_options.begin(), request.trace_options.end());
  words.insert(words.end(), request.command.begin(), request.command.end());
  std::vector<char *> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string &word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  execv(arguments[0], arguments.data());
  fprintf(stderr, "lumio-replay: cannot start %s: %s\n", arguments[0], strerror(errno));
  _exit(127);
}

std::vector<std::string> SplitAtTabs(const std::string &line) {
  std::vector<std::string> words;
  std::istringstream stream(line);
  for (std::string word; std::getline(stream, word, '\t');) {
    words.push_back(word);
  }
  return words;
}

// Reads a line from the player; empty if there are no more.
std::string ReadLine(int player) {
  std::string line;
  for (char byte; read(player, &byte, 1) == 1 && byte != '\n';) {
    line += byte;
  }
  return line;
}

// Serves the player until it is done. Returns the error message, or an empty string.
std::string Serve(lumio::PrivateDisplay &display, int player) {
  for (std::string line = ReadLine(player); !line.empty(); line = ReadLine(player)) {
    const std::vector<std::string> words = SplitAtTabs(line);
    if (words[0] == "press") {
      display.Press(words.at(1), words.at(2));
    } else if (words[0] == "release") {
      display.Release(words.at(1), words.at(2));
    } else if (words[0] == "plug" || words[0] == "unplug") {
      display.SetPlug(words.at(1), words[0] == "plug" ? lumio::Plug::kAttached : lumio::Plug::kUnplugged);
    }
    const bool done = words[0] == "end" || words[0] == "failed";
    if (write(player, "", 1) != 1 || done) {
      return words[0] == "failed" ? words.at(1) : "";
    }
  }
  return "";
}

int Replay(const Request &request) {
  const Recording recording = lumio::trace::ReadRecording(request.file);
  const lumio::TemporaryDirectory store;
  lumio::PrivateDisplay display(DisplayFor(recording));
  UseDevice(display, recording.device);
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
    throw std::runtime_error(strerror(errno));
  }
  const Variables environment = display.Environment(); // names this process
  const pid_t program = fork();
  if (program == 0) {
    close(ends[0]);
    RunProgram(request, environment, ends[1], store.Path());
  }
  close(ends[1]);
  const std::string failure = Serve(display, ends[0]);
  kill(program, SIGTERM);
  int status = 0;
  waitpid(program, &status, 0);
  close(ends[0]);
  if (!failure.empty()) {
    throw std::runtime_error(failure);
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

// Returns an empty command if the arguments are wrong.
Request ReadArguments(int argc, char **argv) {
  Request request;
  int at = 1;
  for (; at < argc && argv[at][0] == '-'; ++at) {
    const std::string option = argv[at];
    if (option.rfind("--speed=", 0) == 0) {
      request.speed = option.substr(8);
    } else if (option == "--skip-waits") {
      request.skip_waits = true;
    } else {
      request.trace_options.push_back(option);
      if (option == "-o" && at + 1 < argc) {
        request.trace_options.emplace_back(argv[++at]);
      }
    }
  }
  if (at + 1 < argc && strtod(request.speed.c_str(), nullptr) > 0) {
    request.file = argv[at];
    request.command.assign(argv + at + 1, argv + argc);
  }
  return request;
}

} // namespace

int main(int argc, char **argv) {
  if (argc == 2 && strcmp(argv[1], "--help") == 0) {
    fputs(kUsage, stdout);
    return EXIT_SUCCESS;
  }
  const Request request = ReadArguments(argc, argv);
  if (request.command.empty()) {
    fputs(kUsage, stderr);
    return kUsageError;
  }
  signal(SIGPIPE, SIG_IGN); // a program that has ended reads no answer
  try {
    return Replay(request);
  } catch (const std::exception &error) {
    fprintf(stderr, "lumio-replay: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
