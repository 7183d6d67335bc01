#include "log_line.h"

#include <cstring>

namespace keylog {
namespace {

constexpr std::string_view kFile = "kevent.cpp: ";
constexpr std::string_view kTag = "lumio-kevent";
constexpr size_t kNone = std::string_view::npos;

// Faster than std::string_view::find().
size_t Find(std::string_view text, std::string_view wanted) {
  const void *found = memmem(text.data(), text.size(), wanted.data(), wanted.size());
  return found ? static_cast<size_t>(static_cast<const char *>(found) - text.data()) : kNone;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Reads all of `text` as a number of `digits` digits.
bool ReadNumber(std::string_view text, size_t digits, int *number) {
  if (text.size() != digits) {
    return false;
  }
  *number = 0;
  for (const char c : text) {
    if (!IsDigit(c)) {
      return false;
    }
    *number = *number * 10 + (c - '0');
  }
  return true;
}

// The days from 1970-01-01, by Howard Hinnant's algorithm.
int DaysFromCivil(int year, int month, int day) {
  year -= month <= 2 ? 1 : 0;
  const int era = (year >= 0 ? year : year - 399) / 400;
  const int year_of_era = year - era * 400;
  const int day_of_year = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  return era * 146097 + year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year - 719468;
}

// Where "HH:MM:SS" stands in `prefix`.
size_t FindClock(std::string_view prefix) {
  for (size_t at = prefix.find(':'); at != kNone; at = prefix.find(':', at + 1)) {
    if (at >= 2 && at + 6 <= prefix.size() && ClockSeconds(prefix.substr(at - 2, 8)) >= 0) {
      return at - 2;
    }
  }
  return kNone;
}

std::string_view NextWord(std::string_view *text) {
  const size_t begin = text->find_first_not_of(' ');
  if (begin == kNone) {
    *text = {};
    return {};
  }
  const size_t end = std::min(text->find(' ', begin), text->size());
  const std::string_view word = text->substr(begin, end - begin);
  text->remove_prefix(end);
  return word;
}

int ReadProcess(std::string_view word) {
  int process = 0;
  return !word.empty() && word.size() <= 9 && ReadNumber(word, word.size(), &process) ? process : -1;
}

// "42 V tag: ", "42 43 V tag: " or "V/tag(P 42, T 43): ".
int FindProcess(std::string_view after_clock) {
  const size_t labelled = Find(after_clock, "(P");
  if (labelled != kNone) {
    std::string_view rest = after_clock.substr(labelled + 2);
    const std::string_view word = NextWord(&rest);
    return ReadProcess(word.substr(0, word.find_first_of(",)")));
  }
  return ReadProcess(NextWord(&after_clock));
}

} // namespace

double ClockSeconds(std::string_view clock) {
  int hours = 0, minutes = 0, seconds = 0;
  if (clock.size() < 5 || !ReadNumber(clock.substr(0, 2), 2, &hours) || clock[2] != ':' ||
      !ReadNumber(clock.substr(3, 2), 2, &minutes) || hours > 23 || minutes > 59) {
    return LogLine::kUnknown;
  }
  double fraction = 0;
  if (clock.size() > 5) {
    if (clock.size() < 8 || clock[5] != ':' || !ReadNumber(clock.substr(6, 2), 2, &seconds) || seconds > 60 ||
        (clock.size() > 8 && clock[8] != '.')) {
      return LogLine::kUnknown;
    }
    double unit = 0.1;
    for (size_t at = 9; at < clock.size(); ++at, unit /= 10) {
      if (!IsDigit(clock[at])) {
        return LogLine::kUnknown;
      }
      fraction += (clock[at] - '0') * unit;
    }
  }
  return hours * 3600 + minutes * 60 + seconds + fraction;
}

double DateSeconds(std::string_view date) {
  int year = 1972, month = 0, day = 0; // a leap year, for dates without one
  if (date.size() == 10 && ReadNumber(date.substr(0, 4), 4, &year) && date[4] == '-') {
    date.remove_prefix(5);
  }
  if (date.size() != 5 || !ReadNumber(date.substr(0, 2), 2, &month) || date[2] != '-' ||
      !ReadNumber(date.substr(3, 2), 2, &day) || month < 1 || month > 12 || day < 1 || day > 31) {
    return LogLine::kUnknown;
  }
  return DaysFromCivil(year, month, day) * 86400.0;
}

bool NamesTheLibrary(std::string_view text) { return Find(text, kTag) != kNone || Find(text, kFile) != kNone; }

double LogLineParser::MidnightOf(std::string_view date) {
  if (date != last_date_) {
    last_date_ = date;
    last_midnight_ = DateSeconds(date);
  }
  return last_midnight_;
}

void LogLineParser::ParsePrefix(std::string_view prefix, LogLine *line) {
  const size_t clock = FindClock(prefix);
  if (clock == kNone) {
    return;
  }
  size_t end = clock + 8;
  if (end < prefix.size() && prefix[end] == '.') {
    end = std::min(prefix.find_first_not_of("0123456789", end + 1), prefix.size());
  }
  line->clock = prefix.substr(clock, end - clock);
  line->time = ClockSeconds(line->clock);
  std::string_view before = prefix.substr(0, clock);
  if (!before.empty() && (before.back() == ' ' || before.back() == 'T')) {
    before.remove_suffix(1);
    const std::string_view date = before.substr(before.find_last_of(" <>") + 1);
    const double midnight = MidnightOf(date);
    if (midnight >= 0) {
      line->date = date;
      line->time += midnight;
    }
  }
  line->process = FindProcess(prefix.substr(end));
}

LogLineParser::Result LogLineParser::Parse(std::string_view text, LogLine *line) {
  const size_t file = Find(text, kFile);
  if (file == kNone) {
    return kForeign;
  }
  *line = {};
  ParsePrefix(text.substr(0, file), line);
  std::string_view rest = text.substr(file + kFile.size());
  const size_t function = rest.find('(');
  const size_t number = Find(rest, ") > [");
  const size_t message = Find(rest, "] ");
  if (function == kNone || number == kNone || message == kNone || function > number || number > message ||
      rest.find('\0') != kNone) {
    return kDamaged;
  }
  line->function = rest.substr(0, function);
  line->message = rest.substr(message + 2);
  line->message.remove_suffix(line->message.size() - (line->message.find_last_not_of(" \t\r\n") + 1));
  return kParsed;
}

} // namespace keylog
