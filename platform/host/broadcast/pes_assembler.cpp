#include "pes_assembler.h"

#include <bitstream/mpeg/pes.h>

namespace lumio::broadcast {

namespace {

constexpr std::size_t kShortHeader = PES_HEADER_SIZE;      // up to the length
constexpr std::size_t kLongHeader = PES_HEADER_SIZE_NOPTS; // up to the length of the optional fields
constexpr std::size_t kPtsSize = PES_HEADER_SIZE_PTS - PES_HEADER_SIZE_NOPTS;
constexpr std::size_t kBothSize = PES_HEADER_SIZE_PTSDTS - PES_HEADER_SIZE_NOPTS;
constexpr std::size_t kStep = std::size_t{64} << 10; // a buffer grows by at least this much

// Some kinds of packets have no optional fields.
bool HasOptionalFields(std::uint8_t stream_id) {
  switch (stream_id) {
  case PES_STREAM_ID_PSM:
  case PES_STREAM_ID_PADDING:
  case PES_STREAM_ID_PRIVATE_2:
  case PES_STREAM_ID_ECM:
  case PES_STREAM_ID_EMM:
  case PES_STREAM_ID_PSD:
  case PES_STREAM_ID_DSMCC:
  case PES_STREAM_ID_H222_1_E:
    return false;
  default:
    return true;
  }
}

} // namespace

void PesAssembler::Keep(Bytes payload) {
  const std::size_t size = begun_.size() + payload.size();
  if (size > kLongestPes) {
    Lose();
    return;
  }
  if (size > taken_) {
    const std::size_t more = std::min(std::max(taken_, kStep), kLongestPes - taken_);
    if (!budget_.Take(more)) {
      Lose();
      return;
    }
    taken_ += more;
    begun_.reserve(taken_);
  }
  begun_.insert(begun_.end(), payload.begin(), payload.end());
  if (size_ == 0 && begun_.size() >= kShortHeader) {
    const std::size_t length = pes_get_length(begun_.data());
    size_ = length == 0 ? 0 : kShortHeader + length;
    if (!pes_validate(begun_.data())) {
      Lose();
    }
  }
}

void PesAssembler::Lose() {
  dropped_ += state_ == State::kBegun ? 1 : 0;
  Drop();
}

// A small buffer is kept for the next packet.
void PesAssembler::Drop() {
  state_ = State::kIdle;
  size_ = 0;
  begun_.clear();
  if (taken_ > kStep || !budget_.IsAmple()) {
    Release();
  }
}

void PesAssembler::Release() {
  begun_.clear();
  begun_.shrink_to_fit();
  budget_.Give(taken_);
  taken_ = 0;
}

bool PesAssembler::Parse(PesPacket &packet) const {
  const Bytes bytes = size_ == 0 ? Bytes(begun_) : Bytes(begun_).First(size_);
  if (bytes.size() < kShortHeader) {
    return false;
  }
  packet = {pid_, pes_get_streamid(bytes.data()), kNoTime, kNoTime, bytes.From(kShortHeader)};
  if (!HasOptionalFields(packet.stream_id)) {
    return true;
  }
  if (bytes.size() < kLongHeader || !pes_validate_header(bytes.data())) {
    return false;
  }
  const std::size_t optional = pes_get_headerlength(bytes.data());
  if (kLongHeader + optional > bytes.size()) {
    return false;
  }
  if (pes_has_pts(bytes.data()) && optional >= kPtsSize && pes_validate_pts(bytes.data())) {
    packet.dts = packet.pts = pes_get_pts(bytes.data());
    if (pes_has_dts(bytes.data()) && optional >= kBothSize && pes_validate_dts(bytes.data())) {
      packet.dts = pes_get_dts(bytes.data());
    }
  }
  packet.payload = bytes.From(kLongHeader + optional);
  return true;
}

} // namespace lumio::broadcast
