// Finds the packets in a stream's bytes.
#pragma once

#include <cstdint>
#include <vector>

#include "byte_source.h"

namespace lumio::broadcast {

constexpr std::size_t kPacketSize = 188; // without the bytes before or after a packet
constexpr std::uint8_t kSyncByte = 0x47;
constexpr std::size_t kBlockSize = std::size_t{256} << 10; // fits into the processor's cache
constexpr std::size_t kLongestRun = 256;                   // packets: their headers stay in the processor's cache

// Packets that lie one after the other.
struct PacketRun {
  const std::uint8_t *first;
  std::size_t count;
  std::size_t stride; // from one to the next
};

class PacketReader {
public:
  // Reads blocks of this size, which have room for several packets.
  explicit PacketReader(ByteSource &source, std::size_t block_size = kBlockSize);

  // Returns the 188 bytes of the next packet, valid until the next call; null at the end.
  const std::uint8_t *Next() { return stride_ != 0 && IsPacket() ? Take() : NextSlowly(); }
  // Returns several of the next packets at once, valid until the next call; none at the end.
  PacketRun NextRun();

  // Starts again with the source's first byte. Returns false if the source cannot do that.
  bool Rewind();

  // Bytes from one packet to the next: 188, 192 (a time stamp before each) or 204 (a checksum after each); 0 until a
  // packet is found.
  unsigned Stride() const { return static_cast<unsigned>(stride_); }
  // Runs of bytes that had to be skipped after the first packet.
  std::uint64_t SyncLosses() const { return sync_losses_; }

private:
  bool IsPacket() const { return position_ + kPacketSize <= end_ && buffer_[position_] == kSyncByte; }
  const std::uint8_t *Take() {
    const std::uint8_t *packet = &buffer_[position_];
    position_ += stride_;
    return packet;
  }
  const std::uint8_t *NextSlowly();
  bool FindFirst();
  bool FindStride();
  bool FindLongest();
  bool FindPacket();
  bool Have(std::size_t count);
  std::size_t ReadBlock(std::uint8_t *to);
  bool IsInStep(std::size_t position, std::size_t stride, int packets) const;

  ByteSource &source_;
  const std::size_t block_size_;
  std::vector<std::uint8_t> buffer_; // the rest of a block, then the next one
  std::size_t position_ = 0;         // may lie beyond the end by less than a stride
  std::size_t end_ = 0;
  bool source_ended_ = false;
  std::size_t stride_ = 0;
  std::uint64_t sync_losses_ = 0;
};

} // namespace lumio::broadcast
