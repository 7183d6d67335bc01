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

} // namespace lumio
