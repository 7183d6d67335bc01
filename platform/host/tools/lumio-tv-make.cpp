// lumio-tv make: writes the sample broadcast.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "lumio-tv.h"
#include "sample/sample_broadcast.h"

namespace lumio::tool {

namespace {

int Write(FILE *output, const std::string &file) {
  const ts::Bytes bytes = sample::MakeBroadcast();
  const bool is_written = fwrite(bytes.data(), 1, bytes.size(), output) == bytes.size();
  return is_written && fflush(output) == 0 ? kDone : Complain(file, strerror(errno));
}

} // namespace

int Make(const Arguments &arguments) {
  if (arguments.size() != 1) {
    return kWrongUsage;
  }
  const std::unique_ptr<FILE, int (*)(FILE *)> output(fopen(arguments[0].c_str(), "wb"), fclose);
  if (!output) {
    return Complain(arguments[0], strerror(errno));
  }
  try {
    return Write(output.get(), arguments[0]);
  } catch (const std::runtime_error &error) {
    return Complain("the sample broadcast cannot be made", error.what());
  }
}

} // namespace lumio::tool
