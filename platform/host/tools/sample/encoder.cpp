#include "encoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/channel_layout.h>
#include <libavutil/log.h>
#include <libavutil/opt.h>
}

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace lumio::sample {
namespace {

constexpr int kSampleRate = 48000;
constexpr int kSoundBitRate = 64000;
constexpr int kClock = 90000; // units of the times per second

void Check(int result, const char *what) {
  if (result < 0) {
    throw std::runtime_error(std::string("libavcodec: cannot ") + what);
  }
}

struct Colour {
  std::uint8_t y, u, v;
};

// White, yellow, cyan, green, magenta, red, blue, black; at 75 %.
constexpr Colour kBars[] = {{180, 128, 128}, {162, 44, 142}, {131, 156, 44}, {112, 72, 58},
                            {84, 184, 198},  {65, 100, 212}, {35, 212, 114}, {16, 128, 128}};
constexpr int kBarCount = 8;
constexpr Colour kGrey = {60, 128, 128};
constexpr Colour kWhite = {235, 128, 128};
constexpr double kSwing = 2 * 3.14159265358979 / (4 * kFramesPerSecond); // four seconds there and back

} // namespace

Encoder::Encoder(const char *codec, Sink sink)
    : context_(nullptr), frame_(nullptr), packet_(nullptr), sink_(std::move(sink)) {
  av_log_set_level(AV_LOG_ERROR); // libx264 reports what it does
  const AVCodec *found = avcodec_find_encoder_by_name(codec);
  Check(found ? 0 : -1, (std::string("find the encoder ") + codec).c_str());
  context_ = avcodec_alloc_context3(found);
  frame_ = av_frame_alloc();
  packet_ = av_packet_alloc();
  context_->thread_count = 1;
  context_->flags |= AV_CODEC_FLAG_BITEXACT;
}

Encoder::~Encoder() {
  avcodec_free_context(&context_);
  av_frame_free(&frame_);
  av_packet_free(&packet_);
}

void Encoder::Open() {
  Check(avcodec_open2(context_, nullptr, nullptr), "open the encoder");
  Check(av_frame_get_buffer(frame_, 0), "allocate a frame");
}

void Encoder::Encode(AVFrame *frame) {
  Check(avcodec_send_frame(context_, frame), "encode");
  while (avcodec_receive_packet(context_, packet_) == 0) {
    av_packet_rescale_ts(packet_, context_->time_base, {1, kClock});
    sink_({{packet_->data, packet_->data + packet_->size}, packet_->pts, packet_->dts});
    av_packet_unref(packet_);
  }
}

void Encoder::Finish() { Encode(nullptr); }

// --- Pictures --------------------------------------------------------------------------------------------------------

PictureEncoder::PictureEncoder(const Settings &settings, Sink sink)
    : Encoder(settings.codec, std::move(sink)), hue_(settings.hue) {
  context_->width = frame_->width = settings.width;
  context_->height = frame_->height = settings.height;
  context_->pix_fmt = AV_PIX_FMT_YUV420P;
  frame_->format = AV_PIX_FMT_YUV420P;
  context_->time_base = {1, kFramesPerSecond};
  context_->framerate = {kFramesPerSecond, 1};
  context_->sample_aspect_ratio = {16 * settings.height, 9 * settings.width};
  context_->bit_rate = settings.bit_rate;
  context_->rc_max_rate = std::int64_t{2} * settings.bit_rate;
  context_->rc_buffer_size = settings.bit_rate;
  context_->gop_size = kFramesPerSecond;
  context_->max_b_frames = 2;
  av_opt_set(context_->priv_data, "x264-params", "aud=1:scenecut=0", 0); // an encoder without them ignores them
  av_opt_set(context_->priv_data, "preset", "ultrafast", 0);
  Open();
}

void PictureEncoder::Draw(int number) {
  const int width = frame_->width, height = frame_->height;
  const double angle = std::sin(number * kSwing);
  const int ball_x = static_cast<int>(width * (0.5 + 0.4 * angle));
  const int ball_y = height * 3 / 4;
  const int radius = height / 12;
  const auto colour_at = [&](int x, int y) {
    if ((x - ball_x) * (x - ball_x) + (y - ball_y) * (y - ball_y) < radius * radius) {
      return kWhite;
    }
    return y < height / 2 ? kBars[(x * kBarCount / width + hue_) % kBarCount] : kGrey;
  };
  // From one picture to the next, only the rows of the ball change.
  const int top = is_drawn_ ? ball_y - radius : 0;
  const int bottom = is_drawn_ ? ball_y + radius : height;
  is_drawn_ = true;
  for (int y = top; y < bottom; ++y) {
    for (int x = 0; x < width; ++x) {
      const Colour colour = colour_at(x, y);
      frame_->data[0][y * frame_->linesize[0] + x] = colour.y;
      if (x % 2 == 0 && y % 2 == 0) {
        frame_->data[1][y / 2 * frame_->linesize[1] + x / 2] = colour.u;
        frame_->data[2][y / 2 * frame_->linesize[2] + x / 2] = colour.v;
      }
    }
  }
}

void PictureEncoder::Encode(int number, const std::vector<std::uint8_t> &line21) {
  Check(av_frame_make_writable(frame_), "write to a frame");
  Draw(number);
  frame_->pts = number;
  av_frame_remove_side_data(frame_, AV_FRAME_DATA_A53_CC);
  if (!line21.empty()) {
    AVFrameSideData *data = av_frame_new_side_data(frame_, AV_FRAME_DATA_A53_CC, line21.size());
    Check(data ? 0 : -1, "attach captions");
    std::copy(line21.begin(), line21.end(), data->data);
  }
  Encoder::Encode(frame_);
}

// --- Sound -----------------------------------------------------------------------------------------------------------

SoundEncoder::SoundEncoder(int frequency, Sink sink) : Encoder("mp2", std::move(sink)), frequency_(frequency) {
  context_->sample_rate = frame_->sample_rate = kSampleRate;
  context_->sample_fmt = AV_SAMPLE_FMT_S16;
  frame_->format = AV_SAMPLE_FMT_S16;
  context_->bit_rate = kSoundBitRate;
  context_->time_base = {1, kSampleRate};
  av_channel_layout_default(&context_->ch_layout, 1);
  av_channel_layout_default(&frame_->ch_layout, 1);
  frame_->nb_samples = 1152; // of an MPEG audio frame
  Open();
}

void SoundEncoder::EncodeUntil(double seconds) {
  constexpr int kToneLength = kSampleRate / 8;
  constexpr double kVolume = 3000;
  while (static_cast<double>(samples_) / kSampleRate < seconds) {
    Check(av_frame_make_writable(frame_), "write to a frame");
    auto *sample = reinterpret_cast<std::int16_t *>(frame_->data[0]);
    for (int i = 0; i < frame_->nb_samples; ++i, ++sample) {
      const auto at = (samples_ + i) % kSampleRate;
      const double wave = std::sin(2 * 3.14159265358979 * frequency_ * static_cast<double>(at) / kSampleRate);
      *sample = static_cast<std::int16_t>(at < kToneLength ? kVolume * wave : 0);
    }
    frame_->pts = samples_;
    samples_ += frame_->nb_samples;
    Encoder::Encode(frame_);
  }
}

} // namespace lumio::sample
