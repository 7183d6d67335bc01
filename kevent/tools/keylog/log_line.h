// A line that the library's key events wrote to a log.
#pragma once

#include <string>
#include <string_view>

namespace keylog {

// The program that wrote the log decides what precedes the library's text. The parser knows the format of the desktop's
// log and those of a television's log viewer. What it does not find is unknown.
struct LogLine {
  static constexpr double kUnknown = -1;

  double time = kUnknown;    // seconds since some midnight
  std::string_view date;     // as in the line; may be empty
  std::string_view clock;    // as in the line; may be empty
  int process = -1;          // the id, -1 if the line has none
  std::string_view function; // the library's function that wrote the line
  std::string_view message;
};

class LogLineParser {
public:
  enum Result {
    kForeign, // not of the library's key events
    kDamaged, // was one, but something has cut or overwritten it
    kParsed,
  };

  Result Parse(std::string_view text, LogLine *line);

private:
  void ParsePrefix(std::string_view prefix, LogLine *line);
  double MidnightOf(std::string_view date);

  std::string last_date_; // and what it came to: most lines have the date of the one before
  double last_midnight_ = 0;
};

// Returns the seconds since midnight of "HH:MM", "HH:MM:SS" or "HH:MM:SS.fff"; LogLine::kUnknown for anything else.
double ClockSeconds(std::string_view clock);

// Returns the seconds from 1970, or from January of any year, to the midnight of "YYYY-MM-DD" or "MM-DD";
// LogLine::kUnknown for anything else.
double DateSeconds(std::string_view date);

// Returns whether the text names the library.
bool NamesTheLibrary(std::string_view text);

} // namespace keylog
