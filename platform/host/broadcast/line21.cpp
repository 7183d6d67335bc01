#include "line21.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "descriptors.h"

namespace lumio::broadcast {

namespace {

constexpr std::uint8_t kMpeg1Video = 0x01;
constexpr std::uint8_t kMpeg2Video = 0x02;
constexpr std::uint8_t kH264Video = 0x1b;

// What stands in front of the caption bytes in the user data of a picture: bytes that depend on the kind of video, then
// the mark. Neither can be part of the picture itself.
constexpr std::string_view kMpeg2User("\0\0\1\xb2", 4);
constexpr std::string_view kH264User("\xb5\0\x31", 3);
constexpr std::string_view kMark("GA94\3", 5);
constexpr std::string_view kEmulation("\0\0\3", 3); // keeps H.264 from seeing a start code
constexpr std::string_view kPictureStart("\0\0\1\0", 4);
constexpr std::string_view kSequenceStart("\0\0\1\xb3", 4);

// What the second byte of a control code asks for.
enum Command {
  kResumeCaption = 0x20,
  kRollUp2 = 0x25,
  kRollUp4 = 0x27,
  kResumeDirect = 0x29,
  kText = 0x2a,
  kResumeText = 0x2b,
  kEraseDisplayed = 0x2c,
  kCarriageReturn = 0x2d,
  kFlip = 0x2f
};

constexpr std::size_t kMostWaiting = 64;
constexpr std::size_t kReorderDepth = 16; // pictures, if the stream has no decoding times
constexpr std::int64_t kPtsCycle = std::int64_t{1} << 33;

// Duration of a frame by the sequence header's frame_rate_code, in units of 90 kHz.
constexpr unsigned kFrameDurations[] = {0, 3754, 3750, 3600, 3003, 3000, 1800, 1502, 1500};

std::string_view AsText(Bytes bytes) { return {reinterpret_cast<const char *>(bytes.data()), bytes.size()}; }

std::size_t Find(Bytes in, std::string_view mark) { return std::min(AsText(in).find(mark), in.size()); }

// Returns where the caption bytes of the next picture start, from `start` on; the size if there are none.
std::size_t FindUserData(Bytes in, std::size_t start, std::string_view user) {
  const std::string_view text = AsText(in);
  for (std::size_t i = text.find(kMark, start); i < text.size(); i = text.find(kMark, i + 1)) {
    if (i >= start + user.size() && text.compare(i - user.size(), user.size(), user) == 0) {
      return i + kMark.size();
    }
  }
  return in.size();
}

// Returns the bytes after a mark, without the emulation prevention bytes of H.264.
std::vector<std::uint8_t> WithoutEmulation(Bytes bytes) {
  std::vector<std::uint8_t> result;
  result.reserve(bytes.size());
  int zeros = 0;
  for (const std::uint8_t byte : bytes) {
    if (zeros >= 2 && byte == 3) {
      zeros = 0;
      continue;
    }
    zeros = byte == 0 ? zeros + 1 : 0;
    result.push_back(byte);
  }
  return result;
}

// Reads the pairs of a cc_data structure, which starts with its flags. Leaves out the ignored fields.
std::vector<Line21Pictures::Pair> ParsePairs(Bytes data, const std::array<bool, 2> &ignored) {
  std::vector<Line21Pictures::Pair> pairs;
  if (data.size() < 2 || (data[0] & 0x40) == 0) {
    return pairs;
  }
  const int count = data[0] & 0x1f;
  data = data.From(2);
  for (int i = 0; i < count && data.size() >= 3; ++i, data = data.From(3)) {
    const bool valid = (data[0] & 4) != 0;
    const int type = data[0] & 3;
    if (valid && type <= 1 && !ignored[type == 1 ? 1 : 0]) { // above 1, a digital caption
      pairs.push_back({type == 1, {data[1], data[2]}});
    }
  }
  return pairs;
}

} // namespace

bool Line21Pictures::Understands(std::uint8_t stream_type) {
  return stream_type == kMpeg1Video || stream_type == kMpeg2Video || stream_type == kH264Video;
}

std::int64_t Line21Pictures::Unwrap(std::uint64_t time) {
  std::int64_t difference = (static_cast<std::int64_t>(time) - last_) % kPtsCycle;
  if (difference < -kPtsCycle / 2) {
    difference += kPtsCycle;
  } else if (difference >= kPtsCycle / 2) {
    difference -= kPtsCycle;
  }
  return last_ + difference;
}

// How much later the last picture of `before` is displayed than the packet's first one.
std::int64_t Line21Pictures::OffsetOf(Bytes before) {
  const std::size_t sequence = Find(before, kSequenceStart);
  if (sequence + 8 <= before.size()) {
    const unsigned code = before[sequence + 7] & 0xf;
    frame_duration_ = code < 9 && code > 0 ? kFrameDurations[code] : frame_duration_;
  }
  int first = -1;
  int last = -1;
  for (std::size_t i = Find(before, kPictureStart); i + 6 <= before.size();) {
    last = static_cast<int>(before.Get16(i + 4) >> 6);
    first = first < 0 ? last : first;
    const Bytes rest = before.From(i + 4);
    i += 4 + Find(rest, kPictureStart);
  }
  return std::int64_t{last - first} * frame_duration_;
}

void Line21Pictures::Add(const PesPacket &packet) {
  if (packet.pts != kNoTime) {
    has_dts_ = has_dts_ || packet.dts != packet.pts;
    decoded_ = last_ = Unwrap(packet.dts);
  }
  const std::int64_t display = packet.pts == kNoTime ? last_ : Unwrap(packet.pts);
  const std::string_view user = is_h264_ ? kH264User : kMpeg2User;
  std::size_t start = 0;
  for (;;) {
    start = FindUserData(packet.payload, start, user);
    if (start == packet.payload.size()) {
      return;
    }
    const std::size_t longest = 2 + 31 * 3; // and as many again for emulation prevention bytes
    const Bytes data = packet.payload.From(start).First(2 * longest);
    const bool is_emulated = is_h264_ && Find(data, kEmulation) < data.size();
    std::vector<Pair> pairs = is_emulated ? ParsePairs(WithoutEmulation(data), ignored_) : ParsePairs(data, ignored_);
    if (pairs.empty()) {
      continue;
    }
    const std::int64_t offset = is_h264_ ? 0 : OffsetOf(packet.payload.First(start));
    const std::int64_t order = display + offset;
    const std::uint64_t pts =
        packet.pts == kNoTime ? kNoTime : (packet.pts + static_cast<std::uint64_t>(offset)) & (kPtsCycle - 1);
    const auto place = std::upper_bound(waiting_.begin(), waiting_.end(), order,
                                        [](std::int64_t time, const Picture &picture) { return time < picture.order; });
    waiting_.insert(place, {order, pts, std::move(pairs)});
  }
}

// Whether every picture still to come is displayed after the waiting one: none is displayed before it is decoded.
bool Line21Pictures::IsReady(std::size_t index) const {
  const std::size_t waiting = waiting_.size() - index;
  return is_ending_ || waiting > kMostWaiting ||
         (has_dts_ ? waiting_[index].order <= decoded_ : waiting > kReorderDepth);
}

Line21Decoder::Line21Decoder(std::uint16_t pid, bool is_h264, const int (&languages)[2], TellCaption tell)
    : pid_(pid), languages_{languages[0], languages[1]}, tell_(std::move(tell)), pictures_(is_h264) {}

void Line21Decoder::Push(const PesPacket &packet) {
  pictures_.Push(packet, [this](const Line21Pictures::Picture &picture) { PushPicture(picture); });
}

void Line21Decoder::End() {
  pictures_.End([this](const Line21Pictures::Picture &picture) { PushPicture(picture); });
}

void Line21Decoder::PushPicture(const Line21Pictures::Picture &picture) {
  for (const Line21Pictures::Pair &pair : picture.pairs) {
    PushPair(pair, picture.pts);
  }
}

void Line21Decoder::PushPair(const Line21Pictures::Pair &pair, std::uint64_t pts) {
  Field &field = fields_[pair.second_field ? 1 : 0];
  const int first = vbi_unpar8(pair.bytes[0]);
  const int second = vbi_unpar8(pair.bytes[1]);
  if (first >= 0x10 && first < 0x20) {
    const bool repeats = pair.bytes == field.last_control;
    field.last_control = repeats ? std::array<std::uint8_t, 2>{} : pair.bytes;
    field.in_other_data = false;
    if (!repeats && second >= 0) {
      PushControl(pair, pts);
    }
    return;
  }
  field.last_control = {};
  if (first > 0 && first < 0x10) {
    field.in_other_data = pair.second_field; // until the next control code of the captions
    return;
  }
  if (!field.in_other_data && (first >= 0x20 || second >= 0x20)) {
    CurrentChannel(pair.second_field).has_new_text = true;
    Decode(pair);
  }
}

void Line21Decoder::PushControl(const Line21Pictures::Pair &pair, std::uint64_t pts) {
  const int first = pair.bytes[0] & 0x7f;
  const int command = pair.bytes[1] & 0x7f;
  fields_[pair.second_field ? 1 : 0].channel = (first & 8) != 0 ? 1U : 0U;
  Channel &channel = CurrentChannel(pair.second_field);
  const int index = static_cast<int>(ChannelIndex(pair.second_field));
  const bool is_command = ((first & 0xf7) == 0x14 || (first & 0xf7) == 0x15) && command >= 0x20 && command < 0x30;
  if (!is_command) {
    // A special character, or the position and style of the next ones.
    channel.has_new_text =
        channel.has_new_text || ((first & 0xf7) >= 0x11 && (first & 0xf7) <= 0x13 && command >= 0x20 &&
                                 command < 0x40 && ((first & 0xf7) != 0x11 || command >= 0x30));
    Decode(pair);
    return;
  }
  const bool was_painting = channel.mode == Mode::kPaintOn && channel.has_new_text;
  if (was_painting && command != kCarriageReturn && command != 0x21 && command != 0x24 && command < 0x30) {
    constexpr std::uint8_t kSpace = 0x20; // ends the last word, without which it is not displayed
    Decode({pair.second_field, {kSpace, static_cast<std::uint8_t>(vbi_par8(0))}});
    TellDisplayed(index, pts); // the painted text is complete
  }
  Decode(pair);
  Obey(command, channel, index, pts);
}

// Follows the effect of a command on the captions to report. The decoder has already executed it.
void Line21Decoder::Obey(int command, Channel &channel, int index, std::uint64_t pts) {
  switch (command) {
  case kResumeCaption:
    channel.mode = Mode::kPopOn;
    break;
  case kRollUp2:
  case kRollUp2 + 1:
  case kRollUp4:
    if (channel.mode != Mode::kRollUp) {
      channel.has_new_text = false;
    }
    channel.mode = Mode::kRollUp;
    break;
  case kResumeDirect:
    channel.mode = Mode::kPaintOn;
    channel.has_new_text = false;
    break;
  case kText:
  case kResumeText:
    channel.mode = Mode::kText;
    break;
  case kEraseDisplayed:
    if (!channel.is_empty) {
      Tell(index, pts, "");
    }
    channel.has_new_text = channel.mode == Mode::kPopOn && channel.has_new_text;
    break;
  case kCarriageReturn:
    if (channel.mode == Mode::kRollUp && channel.has_new_text) {
      TellFinishedRow(index, pts);
    }
    break;
  case kFlip:
    channel.mode = Mode::kPopOn;
    TellDisplayed(index, pts);
    break;
  default:
    break;
  }
}

void Line21Decoder::Decode(const Line21Pictures::Pair &pair) {
  if (!decoder_) {
    decoder_.reset(vbi_decoder_new());
    if (!decoder_) {
      return;
    }
    // Without a listener, nothing is decoded.
    vbi_event_handler_register(
        decoder_.get(), VBI_EVENT_CAPTION, [](vbi_event *, void *) {}, nullptr);
  }
  vbi_sliced sliced{};
  sliced.id = pair.second_field ? VBI_SLICED_CAPTION_525_F2 : VBI_SLICED_CAPTION_525_F1;
  sliced.line = pair.second_field ? 284 : 21;
  std::copy(pair.bytes.begin(), pair.bytes.end(), sliced.data);
  vbi_decode(decoder_.get(), &sliced, 1, 0.0); // without times the decoder sees no gaps
}

vbi_page Line21Decoder::Displayed(int channel) {
  vbi_page page{};
  if (decoder_) {
    vbi_fetch_cc_page(decoder_.get(), &page, channel + 1, /*reset=*/1);
  }
  return page;
}

void Line21Decoder::TellDisplayed(int channel, std::uint64_t pts) {
  const vbi_page page = Displayed(channel);
  Tell(channel, pts, TextOfRows(page, 0, page.rows - 1));
}

// The row that was finished is the last one that is not empty.
void Line21Decoder::TellFinishedRow(int channel, std::uint64_t pts) {
  const vbi_page page = Displayed(channel);
  for (int row = page.rows - 1; row >= 0; --row) {
    const std::string text = TextOfRow(page, row);
    if (!text.empty()) {
      Tell(channel, pts, text);
      return;
    }
  }
}

void Line21Decoder::Tell(int channel, std::uint64_t pts, const std::string &text) {
  channels_[static_cast<std::size_t>(channel)].has_new_text = false;
  channels_[static_cast<std::size_t>(channel)].is_empty = text.empty();
  const int language = languages_[channel < 2 ? 0 : 1];
  tell_({pid_, CaptionKind::kCea608, language == 0 ? kUndeterminedLanguage : language, pts, text});
}

} // namespace lumio::broadcast
