// lumio-tv: what people do with broadcasts on a desktop.
#include "lumio-tv.h"

#include <cstdio>
#include <cstring>

namespace {

using lumio::tool::Arguments;

constexpr const char *kUsage = "usage: lumio-tv info [--json] FILE...\n"
                               "       lumio-tv make FILE\n"
                               "\n"
                               "info  tells what a transport stream carries.\n"
                               "make  writes the sample broadcast.\n"
                               "\n"
                               "Exit status: 0 done; 1 a file could not be used; 2 wrong usage.\n";

struct Command {
  const char *name;
  int (*run)(const Arguments &arguments);
};

constexpr Command kCommands[] = {
    {"info", lumio::tool::Info},
    {"make", lumio::tool::Make},
};

int PrintUsage(FILE *to, int status) {
  fputs(kUsage, to);
  return status;
}

} // namespace

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
