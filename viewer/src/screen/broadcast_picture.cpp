#include "broadcast_picture.h"

#include <Edje.h>
#include <Emotion.h>
#include <lumio-host/broadcast.h>
#include <poll.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

namespace {

// Seconds by which the picture starts late: as much as the stream may arrive unevenly. Frames that come later than
// their time are not shown.
constexpr double kMargin = 0.5;

// Whether what the player passes on has ended.
bool HasEnded(int stream) {
  pollfd state{stream, 0, 0};
  return poll(&state, 1, 0) == 1 && (state.revents & POLLHUP) != 0;
}

} // namespace

BroadcastPicture::BroadcastPicture(const Canvas &canvas) : card_(canvas), frame_(canvas.Add("broadcast picture")) {
  // Where there is no sound card, this way to play sound writes to the terminal.
  setenv("GST_PLUGIN_FEATURE_RANK", "openalsink:NONE", 0);
  emotion_init();
  edje_object_part_swallow(frame_, "card", card_.Object());
}

BroadcastPicture::~BroadcastPicture() {
  Close();
  emotion_shutdown();
}

void BroadcastPicture::SetMoving(bool moving) {
  moving_ = moving;
  card_.SetMoving(moving);
  if (!moving) {
    Close();
  } else if (!video_) {
    Open();
  }
}

void BroadcastPicture::Follow() {
  if (moving_) {
    Close();
    Open();
  }
}

void BroadcastPicture::Open() {
  if (!is_playable_) {
    return;
  }
  stream_ = lumio::FileDescriptor(lumio::broadcast::PassOn());
  if (stream_.Get() < 0) {
    return; // there is no broadcast yet
  }
  video_ = emotion_object_add(evas_object_evas_get(frame_));
  edje_object_part_swallow(frame_, "video", video_);
  const std::pair<const char *, Evas_Smart_Cb> callbacks[] = {
      {"frame_decode", FrameCame}, {"open_done", Prepared}, {"playback_finished", Ended}, {"open_error", Ended}};
  for (const auto &[event, callback] : callbacks) {
    evas_object_smart_callback_add(video_, event, callback, this);
  }
  // As a file: GStreamer fills a buffer of seconds before it plays what it knows to be a pipe.
  const std::string file = "file:///proc/self/fd/" + std::to_string(stream_.Get());
  if (!emotion_object_init(video_, nullptr) || !emotion_object_file_set(video_, file.c_str())) {
    GiveUp();
    return;
  }
  emotion_object_audio_mute_set(video_, EINA_TRUE);
  emotion_object_keep_aspect_set(video_, EMOTION_ASPECT_KEEP_BOTH);
  ShowPart("nothing");
}

// GStreamer may wait for data: it ends when it finds the end of the pipe.
void BroadcastPicture::Close() {
  if (!video_) {
    return;
  }
  lumio::broadcast::StopPassingOn();
  if (start_) {
    ecore_timer_del(std::exchange(start_, nullptr));
  }
  if (ended_) {
    ecore_job_del(std::exchange(ended_, nullptr));
  }
  evas_object_del(std::exchange(video_, nullptr));
  stream_.Close();
  has_picture_ = false;
  ShowPart("card");
}

void BroadcastPicture::Play() {
  start_ = nullptr;
  emotion_object_play_set(video_, EINA_TRUE);
}

void BroadcastPicture::OnEnded() {
  ended_ = nullptr;
  if (!has_picture_ && !HasEnded(stream_.Get())) {
    GiveUp();
  } else {
    Follow();
  }
}

void BroadcastPicture::GiveUp() {
  is_playable_ = false;
  std::fprintf(stderr, "lumio-viewer: no picture: install the Debian packages gstreamer1.0-plugins-bad and "
                       "gstreamer1.0-libav\n");
  Close();
}

// Of "card", "nothing" and "video".
void BroadcastPicture::ShowPart(const char *part) {
  edje_object_signal_emit(frame_, part, "picture");
  edje_object_message_signal_process(frame_);
}

void BroadcastPicture::FrameCame(void *data, Evas_Object *, void *) {
  auto *self = static_cast<BroadcastPicture *>(data);
  if (!self->has_picture_) {
    self->has_picture_ = true;
    self->ShowPart("video");
  }
}

void BroadcastPicture::Prepared(void *data, Evas_Object *, void *) {
  auto *self = static_cast<BroadcastPicture *>(data);
  if (!self->start_) {
    self->start_ = ecore_timer_add(
        kMargin,
        [](void *picture) -> Eina_Bool {
          static_cast<BroadcastPicture *>(picture)->Play();
          return ECORE_CALLBACK_CANCEL;
        },
        self);
  }
}

// The video is in use until this function has returned.
void BroadcastPicture::Ended(void *data, Evas_Object *, void *) {
  auto *self = static_cast<BroadcastPicture *>(data);
  if (!self->ended_) {
    self->ended_ = ecore_job_add([](void *picture) { static_cast<BroadcastPicture *>(picture)->OnEnded(); }, self);
  }
}
