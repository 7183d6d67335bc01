// lumio-keylog: reads a log of the library and prints for each key who was asked, who took it, or why nobody did.
#include <fcntl.h>
#include <fnmatch.h>
#include <getopt.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <map>
#include <optional>
#include <string>

#include "keylog/key_log.h"
#include "keylog/line_reader.h"
#include "keylog/report.h"

namespace keylog {
namespace {

constexpr int kPause = 200;         // milliseconds between two reads of a file that is followed
constexpr int kQuietPauses = 5;     // after this many without a new line, keys without an answer are shown
constexpr size_t kBeginning = 4096; // bytes; a null byte among the first ones means that the log is not text

constexpr char kHelp[] =
    "usage: lumio-keylog [OPTION]... [FILE]\n"
    "Explain what happened to each key in a log of liblumio-kevent.\n"
    "Read standard input if there is no FILE, or if FILE is \"-\".\n"
    "\n"
    "  -f, --follow      wait for more lines at the end of FILE, even after FILE is rotated\n"
    "      --since=TIME  show the keys from TIME on: HH:MM[:SS[.mmm]] of any day, or 'YYYY-MM-DD HH:MM:SS'\n"
    "      --key=NAME    show the keys with this name; *, ? and [...] stand for characters as in a shell\n"
    "      --dropped     show the keys that the library did not pass to any module\n"
    "      --json        print one JSON object per key\n"
    "      --summary     print totals, the slowest keys and the longest silence only\n"
    "      --help        print this help\n";

struct Options {
  std::string file = "-";
  bool follow = false;
  bool dropped = false;
  bool json = false;
  bool summary = false;
  double since = LogLine::kUnknown; // in seconds
  bool since_has_date = false;
  std::string key;

  Report::Form Form() const {
    return summary ? (json ? Report::kJsonSummary : Report::kSummary) : json ? Report::kJson : Report::kText;
  }
};

bool ReadSince(const std::string &text, Options *options) {
  const size_t space = text.find_first_of(" T");
  options->since = ClockSeconds(space == std::string::npos ? text : text.substr(space + 1));
  if (options->since >= 0 && space != std::string::npos) {
    const double midnight = DateSeconds(text.substr(0, space));
    options->since = midnight < 0 ? LogLine::kUnknown : options->since + midnight;
    options->since_has_date = true;
  }
  return options->since >= 0;
}

// Returns whether the key began before --since. A time without a date applies to each day.
bool IsTooEarly(const Options &options, const Key &key) {
  if (options.since < 0) {
    return false;
  }
  return (options.since_has_date ? key.time : ClockSeconds(key.clock)) < options.since;
}

bool IsWanted(const Options &options, const Key &key) {
  return !IsTooEarly(options, key) && (!options.dropped || key.outcome == Outcome::kDropped) &&
         (options.key.empty() || fnmatch(options.key.c_str(), key.name.c_str(), 0) == 0);
}

// Reads a whole log, which may contain the lines of several processes.
class Tool {
public:
  explicit Tool(const Options &options) : options_(options), report_(options.Form(), std::cout) {}

  int Run();

private:
  bool Open();
  bool Complain(const std::string &what) const;
  bool WaitForMore();
  bool HasBeenReplaced() const;
  bool Reopen();
  void ReadLine(LineReader::Result result, std::string_view text);
  void Damaged();
  bool LooksLikeText(std::string_view beginning) const;
  KeyLog &LogOf(int process);
  int Finish();
  std::vector<std::string> Notes() const;

  const Options options_;
  Report report_;
  int descriptor_ = STDIN_FILENO;
  std::optional<LineReader> reader_;
  LogLineParser parser_;
  std::map<int, KeyLog> logs_; // by process id
  KeyLog *last_log_ = nullptr;
  int last_process_ = -1;
  long number_ = 0;
  long damaged_ = 0;
  bool names_the_library_ = false;
  int quiet_ = 0; // pauses without a new line
};

bool Tool::Complain(const std::string &what) const {
  std::cout.flush();
  std::cerr << "lumio-keylog: " << (options_.file == "-" ? "standard input" : Escaped(options_.file)) << ": " << what
            << "\n";
  return false;
}

// How a compressed log begins, and which program reads it.
struct Compression {
  std::string_view magic;
  const char *program;
};

constexpr Compression kCompressions[] = {
    {"\x1f\x8b", "zcat"},
    {"\xfd"
     "7zXZ",
     "xzcat"},
    {"\x28\xb5\x2f\xfd", "zstdcat"},
    {"BZh", "bzcat"},
    {"\x04\x22\x4d\x18", "lz4cat"},
    {"PK\x03\x04", "unzip -p"},
};

bool Tool::Open() {
  if (options_.file != "-") {
    descriptor_ = open(options_.file.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor_ < 0) {
      return Complain(strerror(errno));
    }
  }
  struct stat status;
  if (fstat(descriptor_, &status) == 0 && S_ISDIR(status.st_mode)) {
    return Complain("is a directory");
  }
  reader_.emplace(descriptor_);
  return true;
}

// Call it with the beginning of the log.
bool Tool::LooksLikeText(std::string_view beginning) const {
  for (const Compression &compression : kCompressions) {
    if (beginning.substr(0, compression.magic.size()) == compression.magic) {
      return Complain(std::string("is compressed; use: ") + compression.program + " FILE | lumio-keylog");
    }
  }
  if (beginning.find('\0') != std::string_view::npos && !NamesTheLibrary(beginning)) {
    return Complain("is binary, not a log");
  }
  return true;
}

KeyLog &Tool::LogOf(int process) {
  if (!last_log_ || process != last_process_) {
    const auto [log, added] = logs_.try_emplace(process, [this](const Key &key) {
      if (IsWanted(options_, key)) {
        report_.Print(key);
      }
    });
    last_log_ = &log->second;
    last_process_ = process;
  }
  return *last_log_;
}

// Handles a damaged line, which may belong to any process.
void Tool::Damaged() {
  ++damaged_;
  for (auto &[process, log] : logs_) {
    log.Damaged();
  }
}

void Tool::ReadLine(LineReader::Result result, std::string_view text) {
  ++number_;
  names_the_library_ = names_the_library_ || NamesTheLibrary(text);
  LogLine line;
  switch (result == LineReader::kTooLong ? LogLineParser::kDamaged : parser_.Parse(text, &line)) {
  case LogLineParser::kParsed:
    LogOf(line.process).Read(number_, line);
    break;
  case LogLineParser::kDamaged:
    Damaged();
    break;
  case LogLineParser::kForeign:
    if (result == LineReader::kCut || text.find('\0') != std::string_view::npos) {
      Damaged();
    }
    break;
  }
}

bool Tool::HasBeenReplaced() const {
  struct stat now, opened;
  if (stat(options_.file.c_str(), &now) != 0 || fstat(descriptor_, &opened) != 0) {
    return false;
  }
  return now.st_ino != opened.st_ino || now.st_dev != opened.st_dev || now.st_size < lseek(descriptor_, 0, SEEK_CUR);
}

bool Tool::Reopen() {
  for (auto &[process, log] : logs_) {
    log.Damaged();
  }
  close(descriptor_);
  return Open();
}

// Returns whether there may be more to read.
bool Tool::WaitForMore() {
  if (!options_.follow || reader_->Error() != 0 || options_.file == "-") {
    return false;
  }
  if (HasBeenReplaced()) {
    return Reopen();
  }
  if (++quiet_ == kQuietPauses) {
    for (auto &[process, log] : logs_) {
      log.Quiet();
    }
  }
  std::cout.flush();
  poll(nullptr, 0, kPause);
  return std::cout.good();
}

int Tool::Run() {
  if (!Open()) {
    return 1;
  }
  std::string_view line;
  for (;;) {
    LineReader::Result result = reader_->Next(&line);
    if (result == LineReader::kNothing && !WaitForMore()) {
      result = reader_->Rest(&line);
      if (result == LineReader::kNothing) {
        return Finish();
      }
    }
    if (result == LineReader::kNothing) {
      continue;
    }
    if (number_ == 0 && !LooksLikeText(line.substr(0, kBeginning))) {
      return 1;
    }
    quiet_ = 0;
    ReadLine(result, line);
  }
}

std::vector<std::string> Tool::Notes() const {
  std::vector<std::string> notes;
  if (damaged_ > 0) {
    notes.push_back(std::to_string(damaged_) + " damaged line" + (damaged_ == 1 ? "" : "s") + " left out");
  }
  bool has_traces = true;
  for (const auto &[process, log] : logs_) {
    has_traces = has_traces && log.HasTraces();
    if (process < 0) {
      notes.emplace_back("the lines name no process; the keys of several viewers cannot be told apart");
    }
  }
  if (!has_traces) {
    notes.emplace_back("the log leaves out lines of low priority; who was asked is not known");
  }
  return notes;
}

int Tool::Finish() {
  for (auto &[process, log] : logs_) {
    log.End();
  }
  if (reader_->Error() != 0) {
    Complain(strerror(reader_->Error()));
    return 1;
  }
  if (!names_the_library_) {
    Complain("contains no line of liblumio-kevent");
    return 1;
  }
  report_.Finish(Notes());
  return std::cout.good() ? 0 : 1;
}

enum { kSince = 256, kKey, kDropped, kJson, kSummary, kHelpOption };

constexpr option kLongOptions[] = {
    {"follow", no_argument, nullptr, 'f'},       {"since", required_argument, nullptr, kSince},
    {"key", required_argument, nullptr, kKey},   {"dropped", no_argument, nullptr, kDropped},
    {"json", no_argument, nullptr, kJson},       {"summary", no_argument, nullptr, kSummary},
    {"help", no_argument, nullptr, kHelpOption}, {nullptr, 0, nullptr, 0},
};

// Returns the exit status if the program must end.
std::optional<int> ReadOption(int option, Options *options) {
  switch (option) {
  case 'f':
    options->follow = true;
    return {};
  case kSince:
    if (!ReadSince(optarg, options)) {
      std::cerr << "lumio-keylog: --since takes HH:MM[:SS[.mmm]] or 'YYYY-MM-DD HH:MM:SS', not \"" << Escaped(optarg)
                << "\"\n";
      return 2;
    }
    return {};
  case kKey:
    options->key = optarg;
    return {};
  case kDropped:
    options->dropped = true;
    return {};
  case kJson:
    options->json = true;
    return {};
  case kSummary:
    options->summary = true;
    return {};
  case kHelpOption:
    std::cout << kHelp;
    return 0;
  default:
    std::cerr << "Try 'lumio-keylog --help'.\n";
    return 2;
  }
}

int Main(int argc, char **argv) {
  Options options;
  for (int option; (option = getopt_long(argc, argv, "f", kLongOptions, nullptr)) != -1;) {
    if (const std::optional<int> status = ReadOption(option, &options)) {
      return *status;
    }
  }
  if (argc - optind > 1) {
    std::cerr << "lumio-keylog: give only one FILE\nTry 'lumio-keylog --help'.\n";
    return 2;
  }
  if (optind < argc) {
    options.file = argv[optind];
  }
  return Tool(options).Run();
}

} // namespace
} // namespace keylog

int main(int argc, char **argv) {
  std::ios::sync_with_stdio(false);
  return keylog::Main(argc, argv);
}
