// Lines of a file or pipe, in bounded memory.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace keylog {

class LineReader {
public:
  enum Result {
    kLine,    // *line holds a line, without its line break
    kTooLong, // *line holds the beginning of a line that does not fit into the buffer; Next() skips the rest
    kCut,     // *line holds the last line of the log, which has no line break
    kNothing, // there is nothing more to read for now
  };

  // Reads `descriptor`. Does not close it.
  explicit LineReader(int descriptor) : descriptor_(descriptor), buffer_(kSize) {}

  // *line stays valid until the next call. After kNothing the caller may try again: a file may have grown.
  Result Next(std::string_view *line);

  // Returns the line that has begun but has no end yet. Call it when nothing more is to come.
  Result Rest(std::string_view *line);

  // Returns the errno of read() after a failure, otherwise 0.
  int Error() const { return error_; }

private:
  static constexpr size_t kSize = 1 << 16; // bytes; no line of the library is nearly as long

  bool Fill();

  int descriptor_;
  int error_ = 0;
  std::vector<char> buffer_;
  size_t begin_ = 0;      // of what has not been returned
  size_t searched_ = 0;   // no line break before this
  size_t end_ = 0;        // of what has been read
  bool skipping_ = false; // in the rest of a line that was too long
};

} // namespace keylog
