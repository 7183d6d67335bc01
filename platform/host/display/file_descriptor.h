// Owns a file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace lumio {

class FileDescriptor {
public:
  FileDescriptor() = default;
  explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor &&other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  FileDescriptor &operator=(FileDescriptor &&other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  ~FileDescriptor() { Close(); }

  int Get() const { return descriptor_; }
  void Close() {
    if (descriptor_ >= 0) {
      close(std::exchange(descriptor_, -1));
    }
  }

private:
  int descriptor_ = -1;
};

constexpr int kPatience = 60'000; // milliseconds; a server on a crowded machine needs a few seconds

// Waits until there is something to read, the end of the file included; false when that takes longer.
bool WaitReadable(const FileDescriptor &descriptor, int milliseconds = kPatience);

} // namespace lumio
