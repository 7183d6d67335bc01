// Writes the sample broadcast for lumio-tv make. This is a program of its own because only it needs libavcodec, which
// takes longer to load than many a stream takes to read.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include "sample/sample_broadcast.h"

namespace {

int Complain(const std::string &what, const char *why) {
  fprintf(stderr, "lumio-tv: %s: %s\n", what.c_str(), why);
  return 1;
}

int Write(FILE *output, const std::string &file) {
  const ts::Bytes bytes = lumio::sample::MakeBroadcast();
  const bool is_written = fwrite(bytes.data(), 1, bytes.size(), output) == bytes.size();
  return is_written && fflush(output) == 0 ? 0 : Complain(file, strerror(errno));
}

} // namespace

// lumio-tv has checked the arguments.
int main(int, char **argv) {
  const std::string file = argv[1];
  const std::unique_ptr<FILE, int (*)(FILE *)> output(fopen(file.c_str(), "wb"), fclose);
  if (!output) {
    return Complain(file, strerror(errno));
  }
  try {
    return Write(output.get(), file);
  } catch (const std::runtime_error &error) {
    return Complain("the sample broadcast cannot be made", error.what());
  }
}
