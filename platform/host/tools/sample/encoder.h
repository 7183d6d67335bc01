// Encodes the moving picture and the sound of the sample broadcast.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

struct AVCodecContext;
struct AVFrame;
struct AVPacket;

namespace lumio::sample {

constexpr int kFramesPerSecond = 25;

// An encoded picture, or a few of sound, with its times in units of 90 kHz.
struct AccessUnit {
  std::vector<std::uint8_t> data;
  std::int64_t pts;
  std::int64_t dts;
};

// An encoder of libavcodec. It runs in one thread, and leaves out what differs from build to build, so that the same
// library makes the same bytes.
class Encoder {
public:
  using Sink = std::function<void(AccessUnit)>;

  Encoder(const Encoder &) = delete;
  Encoder &operator=(const Encoder &) = delete;
  ~Encoder();

  // Passes on what is left in the encoder.
  void Finish();

protected:
  // Throws std::runtime_error if libavcodec lacks the encoder, or refuses its settings.
  Encoder(const char *codec, Sink sink);
  void Open();
  void Encode(AVFrame *frame);

  AVCodecContext *context_;
  AVFrame *frame_;

private:
  AVPacket *packet_;
  Sink sink_;
};

// Draws a test card that moves, and encodes it with line-21 data.
class PictureEncoder : public Encoder {
public:
  struct Settings {
    const char *codec;
    int width, height; // pixels
    int bit_rate;      // per second
    int hue;           // rotates the colours of the card, in bars
  };

  PictureEncoder(const Settings &settings, Sink sink);

  // Encodes the picture `number`. `line21` is the A/53 caption data that goes with it: triplets of a type and two
  // bytes.
  void Encode(int number, const std::vector<std::uint8_t> &line21);

private:
  void Draw(int number);

  const int hue_;
  bool is_drawn_ = false;
};

// A tone that sounds at the beginning of each second.
class SoundEncoder : public Encoder {
public:
  // `frequency` is that of the tone, in Hz.
  SoundEncoder(int frequency, Sink sink);

  // Encodes the sound up to `seconds`.
  void EncodeUntil(double seconds);

private:
  const int frequency_;
  std::int64_t samples_ = 0;
};

} // namespace lumio::sample
