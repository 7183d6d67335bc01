#include "byte_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace lumio::broadcast {

FileSource::~FileSource() {
  if (file_ >= 0) {
    close(file_);
  }
}

int FileSource::Open(const std::string &path) {
  file_ = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file_ < 0) {
    return errno;
  }
  struct stat status;
  if (fstat(file_, &status) == 0 && S_ISDIR(status.st_mode)) {
    return EISDIR;
  }
  posix_fadvise(file_, 0, 0, POSIX_FADV_SEQUENTIAL);
  return 0;
}

std::size_t FileSource::Read(std::uint8_t *to, std::size_t room) {
  ssize_t count = 0;
  do {
    count = read(file_, to, room);
  } while (count < 0 && errno == EINTR);
  if (count < 0) {
    error_ = errno;
    return 0;
  }
  return static_cast<std::size_t>(count);
}

bool FileSource::Rewind() { return lseek(file_, 0, SEEK_SET) == 0; }

std::size_t MemorySource::Read(std::uint8_t *to, std::size_t room) {
  const Bytes part = bytes_.From(position_).First(room);
  if (!part.empty()) {
    std::memcpy(to, part.data(), part.size());
  }
  position_ += part.size();
  return part.size();
}

bool MemorySource::Rewind() {
  position_ = 0;
  return true;
}

} // namespace lumio::broadcast
