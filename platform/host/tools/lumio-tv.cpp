// lumio-tv: inspects, plays and makes transport streams.
#include "lumio-tv.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>

namespace {

using lumio::tool::Arguments;

constexpr const char *kUsage = "usage: lumio-tv info [--json] FILE...\n"
                               "       lumio-tv make FILE\n"
                               "       lumio-tv watch [--fast] [--service ID] FILE\n"
                               "\n"
                               "info   prints what a transport stream contains.\n"
                               "make   writes the sample broadcast.\n"
                               "watch  plays a transport stream and prints the notifications that modules get.\n"
                               "\n"
                               "Exit status: 0 success; 1 a file could not be used; 2 wrong usage.\n";

// Becomes the program that makes the sample broadcast. It is installed with the library's own files, and lies beside
// this one where both were built.
int Make(const Arguments &arguments) {
  if (arguments.size() != 1) {
    return lumio::tool::kWrongUsage;
  }
  const std::filesystem::path directory = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  std::string program;
  for (const char *place : {LUMIO_TV_MAKE_PLACE, ""}) {
    program = directory / place / "lumio-tv-make";
    execl(program.c_str(), program.c_str(), arguments[0].c_str(), nullptr);
  }
  return lumio::tool::Complain(program, strerror(errno));
}

struct Command {
  const char *name;
  int (*run)(const Arguments &arguments);
};

constexpr Command kCommands[] = {
    {"info", lumio::tool::Info},
    {"make", Make},
    {"watch", lumio::tool::Watch},
};

int PrintUsage(FILE *to, int status) {
  fputs(kUsage, to);
  return status;
}

} // namespace

std::string lumio::tool::TimeText(std::int64_t time) {
  const auto seconds = static_cast<std::time_t>(time);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  char text[32];
  strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts);
  return text;
}

std::string lumio::tool::DurationText(unsigned seconds) {
  char text[32];
  snprintf(text, sizeof text, "%u:%02u:%02u", seconds / 3600, seconds / 60 % 60, seconds % 60);
  return text;
}

std::string lumio::tool::LanguageText(int language) {
  std::string text;
  for (const int shift : {16, 8, 0}) {
    const char letter = static_cast<char>(language >> shift & 0xff);
    text += letter >= ' ' && letter < 0x7f ? letter : '?';
  }
  return text;
}

std::string lumio::tool::OneLine(std::string text) {
  for (std::size_t i = text.find('\n'); i != std::string::npos; i = text.find('\n', i)) {
    text.replace(i, 1, " / ");
  }
  return text;
}

int lumio::tool::Complain(const std::string &what, const std::string &why) {
  fprintf(stderr, "lumio-tv: %s: %s\n", what.c_str(), why.c_str());
  return kFailed;
}

int main(int argc, char **argv) {
  if (argc < 2) {
    return PrintUsage(stderr, lumio::tool::kWrongUsage);
  }
  if (strcmp(argv[1], "--help") == 0) {
    return PrintUsage(stdout, lumio::tool::kDone);
  }
  for (const Command &command : kCommands) {
    if (strcmp(argv[1], command.name) == 0) {
      int status = command.run(Arguments(argv + 2, argv + argc));
      if (status == lumio::tool::kWrongUsage) {
        PrintUsage(stderr, status);
      }
      if (fflush(stdout) != 0 || ferror(stdout) != 0) {
        status = lumio::tool::Complain("output", "could not be written");
      }
      return status;
    }
  }
  return PrintUsage(stderr, lumio::tool::kWrongUsage);
}
