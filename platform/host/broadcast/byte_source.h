// Where a stream's bytes come from.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "bytes.h"

namespace lumio::broadcast {

class ByteSource {
public:
  virtual ~ByteSource() = default;
  // Reads up to `room` bytes; 0 at the end.
  virtual std::size_t Read(std::uint8_t *to, std::size_t room) = 0;
  // Starts from the beginning. Returns false if that is not possible.
  virtual bool Rewind() = 0;
};

class FileSource final : public ByteSource {
public:
  FileSource() = default;
  ~FileSource() override;
  FileSource(const FileSource &) = delete;
  FileSource &operator=(const FileSource &) = delete;

  // 0, or an errno value.
  int Open(const std::string &path);
  std::size_t Read(std::uint8_t *to, std::size_t room) override;
  bool Rewind() override;
  // The errno value of a failed read that ended the stream early; otherwise 0.
  int Error() const { return error_; }

private:
  int file_ = -1;
  int error_ = 0;
};

class MemorySource final : public ByteSource {
public:
  explicit MemorySource(Bytes bytes) : bytes_(bytes) {}
  std::size_t Read(std::uint8_t *to, std::size_t room) override;
  bool Rewind() override;

private:
  Bytes bytes_;
  std::size_t position_ = 0;
};

} // namespace lumio::broadcast
