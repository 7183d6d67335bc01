// Reads a source in large blocks, on a thread of its own if that saves time.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "byte_source.h"

namespace lumio::broadcast {

class BlockReader {
public:
  static constexpr std::size_t kRoom = 1024; // bytes

  // With `ahead`, a thread reads the next blocks while the caller uses one.
  BlockReader(ByteSource &source, std::size_t block_size, bool ahead);
  ~BlockReader() { Stop(); }
  BlockReader(const BlockReader &) = delete;
  BlockReader &operator=(const BlockReader &) = delete;

  struct Block {
    std::uint8_t *data = nullptr; // `kRoom` bytes before it may be overwritten
    std::size_t size = 0;
  };
  // Returns the next block, valid until the call after the next one. A block is smaller than the others only at the
  // end.
  Block Next();
  // Starts with the source's first byte again. Returns false if the source cannot do that.
  bool Rewind();

private:
  Block Read(std::vector<std::uint8_t> &buffer);
  void Run();
  void Stop();

  static constexpr std::size_t kBuffers = 5; // two for the caller

  ByteSource &source_;
  const std::size_t block_size_;
  const bool ahead_;
  std::vector<std::uint8_t> buffers_[kBuffers]; // in turn

  std::mutex mutex_; // guards everything below
  std::condition_variable changed_;
  std::deque<Block> ready_;
  std::size_t taken_ = 0; // blocks
  bool stopping_ = false;

  std::thread thread_;
};

} // namespace lumio::broadcast
