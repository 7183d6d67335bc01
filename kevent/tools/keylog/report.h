// What lumio-keylog prints.
#pragma once

#include <map>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "key.h"

namespace keylog {

// Prints keys one after another, and the totals at the end.
class Report {
public:
  enum Form { kText, kJson, kSummary, kJsonSummary };

  Report(Form form, std::ostream &out) : form_(form), out_(out) {}

  void Print(const Key &key);

  // Prints the totals and `notes`, which say what the log does not show.
  void Finish(const std::vector<std::string> &notes);

private:
  struct Slow {
    double seconds;
    Key key;
  };

  void Count(const Key &key);
  void PrintText(const Key &key);
  void PrintTotals();
  void PrintExtremes();
  void PrintJsonSummary();

  Form form_;
  std::ostream &out_;
  bool has_printed_ = false;
  int process_ = -1; // the process whose keys are being printed
  long total_ = 0;
  std::map<std::string, long> outcomes_;
  std::map<std::string, long> takers_;
  std::vector<Slow> slowest_; // longest first
  Key silent_;                // the key that waited for the main loop longest
};

// Returns `text` in a form that is safe for a terminal: control characters and invalid UTF-8 become \xNN.
std::string Escaped(std::string_view text);

} // namespace keylog
