// A view of bytes; it does not own them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace lumio::broadcast {

class Bytes {
public:
  Bytes() = default;
  Bytes(const std::uint8_t *data, std::size_t size) : data_(data), size_(size) {}
  Bytes(const std::vector<std::uint8_t> &bytes) : Bytes(bytes.data(), bytes.size()) {} // NOLINT: reads like a view

  const std::uint8_t *data() const { return data_; }
  std::size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  const std::uint8_t *begin() const { return data_; }
  const std::uint8_t *end() const { return data_ + size_; }
  std::uint8_t operator[](std::size_t i) const { return data_[i]; }

  // Both return fewer bytes if there are not as many.
  Bytes First(std::size_t count) const { return {data_, std::min(count, size_)}; }
  Bytes From(std::size_t start) const { return {data_ + std::min(start, size_), size_ - std::min(start, size_)}; }

  // Big-endian; the caller has checked the size.
  unsigned Get16(std::size_t i) const { return static_cast<unsigned>(data_[i]) << 8 | data_[i + 1]; }
  std::uint32_t Get32(std::size_t i) const { return std::uint32_t{Get16(i)} << 16 | Get16(i + 2); }

  std::vector<std::uint8_t> Copy() const { return {begin(), end()}; }

private:
  const std::uint8_t *data_ = nullptr;
  std::size_t size_ = 0;
};

} // namespace lumio::broadcast
