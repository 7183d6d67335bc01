#include "packet_reader.h"

#include <cstring>

namespace lumio::broadcast {

namespace {

constexpr std::size_t kStrides[] = {188, 192, 204};
constexpr std::size_t kLongestStride = 204;
constexpr int kSure = 5; // sync bytes in a row that determine the packet size
constexpr std::size_t kShort = kSure * kLongestStride;
constexpr int kLikely = 2;    // the same in front of a position that is sure
constexpr int kConfident = 3; // sync bytes in a row that determine the position once the size is known

} // namespace

PacketReader::PacketReader(ByteSource &source, std::size_t block_size)
    : source_(source), block_size_(block_size), buffer_(kShort + block_size) {}

// Returns the number of bytes, which is less than that of a block only at the end.
std::size_t PacketReader::ReadBlock(std::uint8_t *to) {
  std::size_t size = 0;
  for (std::size_t count = 1; count > 0 && size < block_size_; size += count) {
    count = source_.Read(to + size, block_size_ - size);
  }
  return size;
}

// Whether `count` bytes are available from the position on: at most `kShort` of them, or a first block.
bool PacketReader::Have(std::size_t count) {
  if (position_ + count <= end_) {
    return true;
  }
  if (source_ended_) {
    return false;
  }
  const std::size_t kept = position_ < end_ ? end_ - position_ : 0;
  std::memmove(buffer_.data(), buffer_.data() + end_ - kept, kept);
  position_ -= end_ - kept;
  const std::size_t size = ReadBlock(&buffer_[kept]);
  end_ = kept + size;
  source_ended_ = size < block_size_;
  return position_ + count <= end_;
}

// Whether there are sync bytes at the position and, up to the end of the stream, at each stride after it.
bool PacketReader::IsInStep(std::size_t position, std::size_t stride, int packets) const {
  if (position + kPacketSize > end_) {
    return false;
  }
  for (int i = 0; i < packets; ++i, position += stride) {
    if (position + kPacketSize > end_) {
      return source_ended_;
    }
    if (buffer_[position] != kSyncByte) {
      return false;
    }
  }
  return true;
}

// Determines the stride from the first position where only one stride explains the sync bytes.
bool PacketReader::FindStride() {
  while (Have(kShort)) {
    for (const std::size_t stride : kStrides) {
      if (IsInStep(position_, stride, kSure)) {
        stride_ = stride;
        return true;
      }
    }
    ++position_;
  }
  return false;
}

// If the stream is too short to be sure: finds the stride that explains most sync bytes up to the end.
bool PacketReader::FindLongest() {
  std::size_t most = 0;
  const std::size_t first = end_ > kShort ? end_ - kShort : 0; // the rest has been searched already
  for (std::size_t start = first; start + kPacketSize <= end_; ++start) {
    for (const std::size_t stride : kStrides) {
      std::size_t count = 0;
      for (std::size_t i = start; i + kPacketSize <= end_ && buffer_[i] == kSyncByte; i += stride) {
        ++count;
      }
      if (count > most) {
        most = count;
        stride_ = stride;
        position_ = start;
      }
    }
  }
  return most > 0;
}

// Moves the position to the next packet.
bool PacketReader::FindPacket() {
  while (Have(kConfident * stride_) || position_ + kPacketSize <= end_) {
    const void *sync = std::memchr(&buffer_[position_], kSyncByte, end_ - position_);
    if (!sync) {
      position_ = end_;
      continue;
    }
    position_ = static_cast<std::size_t>(static_cast<const std::uint8_t *>(sync) - buffer_.data());
    if (!Have(kConfident * stride_) && position_ + kPacketSize > end_) {
      break;
    }
    if (IsInStep(position_, stride_, kConfident)) {
      return true;
    }
    ++position_;
  }
  position_ = end_;
  return false;
}

// Finds the first packet. There may be packets before the position that determined the stride, if some are damaged.
bool PacketReader::FindFirst() {
  Have(block_size_);
  if (!FindStride() && !FindLongest()) {
    return false;
  }
  for (std::size_t start = position_ % stride_; start < position_; start += stride_) {
    if (IsInStep(start, stride_, kLikely)) {
      position_ = start; // and the loop ends
    }
  }
  return true;
}

const std::uint8_t *PacketReader::NextSlowly() {
  if (stride_ == 0) {
    if (!FindFirst()) {
      return nullptr;
    }
  } else if (!Have(kPacketSize)) {
    // A packet that is cut off at the end is not a loss of synchronisation.
    if (position_ < end_ && buffer_[position_] != kSyncByte) {
      ++sync_losses_;
    }
    position_ = std::max(position_, end_);
    return nullptr;
  } else if (buffer_[position_] != kSyncByte) {
    ++sync_losses_;
    if (!FindPacket()) {
      return nullptr;
    }
  }
  return Take();
}

PacketRun PacketReader::NextRun() {
  const std::uint8_t *first = Next();
  PacketRun run{first, first ? 1U : 0U, stride_};
  for (; first && run.count < kLongestRun && IsPacket(); ++run.count) {
    Take();
  }
  return run;
}

bool PacketReader::Rewind() {
  position_ = end_ = 0;
  source_ended_ = false;
  stride_ = 0;
  return source_.Rewind();
}

} // namespace lumio::broadcast
