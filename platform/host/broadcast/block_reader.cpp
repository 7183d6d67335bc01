#include "block_reader.h"

namespace lumio::broadcast {

BlockReader::BlockReader(ByteSource &source, std::size_t block_size, bool ahead)
    : source_(source), block_size_(block_size), ahead_(ahead) {}

BlockReader::Block BlockReader::Read(std::vector<std::uint8_t> &buffer) {
  buffer.resize(kRoom + block_size_);
  Block block{&buffer[kRoom], 0};
  while (block.size < block_size_) {
    const std::size_t count = source_.Read(block.data + block.size, block_size_ - block.size);
    if (count == 0) {
      break;
    }
    block.size += count;
  }
  return block;
}

BlockReader::Block BlockReader::Next() {
  if (!ahead_) {
    return Read(buffers_[taken_++ % 2]);
  }
  if (!thread_.joinable()) {
    thread_ = std::thread(&BlockReader::Run, this);
  }
  std::unique_lock<std::mutex> lock(mutex_);
  changed_.wait(lock, [this] { return !ready_.empty(); });
  const Block block = ready_.front();
  if (block.size == block_size_) { // the last one stays, for further calls
    ready_.pop_front();
    ++taken_;
    changed_.notify_one();
  } else {
    ready_.front().size = 0;
  }
  return block;
}

void BlockReader::Run() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (std::size_t number = 0;; ++number) {
    changed_.wait(lock, [&] { return stopping_ || number + 2 < taken_ + kBuffers; });
    if (stopping_) {
      return;
    }
    lock.unlock();
    const Block block = Read(buffers_[number % kBuffers]);
    lock.lock();
    ready_.push_back(block);
    changed_.notify_one();
    if (block.size < block_size_) {
      return;
    }
  }
}

void BlockReader::Stop() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    stopping_ = true;
    changed_.notify_one();
  }
  if (thread_.joinable()) {
    thread_.join();
  }
}

bool BlockReader::Rewind() {
  Stop();
  ready_.clear();
  taken_ = 0;
  stopping_ = false;
  return source_.Rewind();
}

} // namespace lumio::broadcast
