// CEA-608 captions, which a video stream carries in its user data.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "caption.h"
#include "pes_assembler.h"
#include "vbi_text.h"

namespace lumio::broadcast {

// Finds the bytes of line 21 in the pictures and brings them into display order.
class Line21Pictures {
public:
  struct Pair {
    bool second_field;
    std::array<std::uint8_t, 2> bytes;
  };
  struct Picture {
    std::int64_t order; // of display
    std::uint64_t pts;
    std::vector<Pair> pairs;
  };

  explicit Line21Pictures(bool is_h264) : is_h264_(is_h264) {}

  // Leaves out the pairs of the field from now on.
  void Ignore(bool second_field) { ignored_[second_field ? 1 : 0] = true; }

  // Returns whether streams of this type are supported.
  static bool Understands(std::uint8_t stream_type);

  // Calls tell(const Picture &) for each picture whose turn has come.
  template <class Tell> void Push(const PesPacket &packet, Tell &&tell) {
    Add(packet);
    TellReady(tell);
  }
  template <class Tell> void End(Tell &&tell) {
    is_ending_ = true;
    TellReady(tell);
    is_ending_ = false;
  }

private:
  void Add(const PesPacket &packet);
  std::int64_t Unwrap(std::uint64_t time);
  std::int64_t OffsetOf(Bytes before);

  template <class Tell> void TellReady(Tell &&tell) {
    std::size_t count = 0;
    while (count < waiting_.size() && IsReady(count)) {
      tell(waiting_[count++]);
    }
    waiting_.erase(waiting_.begin(), waiting_.begin() + static_cast<std::ptrdiff_t>(count));
  }
  bool IsReady(std::size_t index) const;

  const bool is_h264_;
  bool is_ending_ = false;
  std::array<bool, 2> ignored_{}; // fields
  bool has_dts_ = false;          // some packet had a decoding time
  std::int64_t decoded_ = 0;      // decoding time of the last picture
  std::int64_t last_ = 0;         // the next time is near this one
  unsigned frame_duration_ = 3003;
  std::vector<Picture> waiting_; // in display order
};

class Line21Decoder {
public:
  // `languages` are those of the two fields; 0 if not known.
  Line21Decoder(std::uint16_t pid, bool is_h264, const int (&languages)[2], TellCaption tell);
  Line21Decoder(const Line21Decoder &) = delete;
  Line21Decoder &operator=(const Line21Decoder &) = delete;

  void Push(const PesPacket &packet);
  void End();
  // Stops decoding a field whose captions are no longer wanted.
  void Ignore(bool second_field) { pictures_.Ignore(second_field); }

private:
  enum class Mode { kNone, kPopOn, kRollUp, kPaintOn, kText };
  struct Channel {
    Mode mode = Mode::kNone;
    bool has_new_text = false; // since the last row, painting or flip ended
    bool is_empty = true;      // what is displayed
  };
  struct Field {
    unsigned channel = 0;                       // of the two that the field has
    std::array<std::uint8_t, 2> last_control{}; // to recognise its repetition
    bool in_other_data = false;                 // which shares the second field
  };

  void PushPicture(const Line21Pictures::Picture &picture);
  void PushPair(const Line21Pictures::Pair &pair, std::uint64_t pts);
  void PushControl(const Line21Pictures::Pair &pair, std::uint64_t pts);
  void Obey(int command, Channel &channel, int index, std::uint64_t pts);
  void Decode(const Line21Pictures::Pair &pair);
  void TellDisplayed(int channel, std::uint64_t pts);
  void TellFinishedRow(int channel, std::uint64_t pts);
  void Tell(int channel, std::uint64_t pts, const std::string &text);
  vbi_page Displayed(int channel);
  Channel &CurrentChannel(bool second_field) { return channels_[ChannelIndex(second_field)]; }
  std::size_t ChannelIndex(bool second_field) const {
    return (second_field ? 2U : 0U) + fields_[second_field ? 1 : 0].channel;
  }

  const std::uint16_t pid_;
  const std::array<int, 2> languages_;
  const TellCaption tell_;
  Line21Pictures pictures_;
  std::array<Field, 2> fields_;
  std::array<Channel, 4> channels_; // CC1 to CC4
  VbiDecoder decoder_;              // created with the first pair
};

} // namespace lumio::broadcast
