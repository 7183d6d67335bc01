/**
 * @file broadcast.h
 * Plays a transport stream to the modules, as a tuner would.
 *
 * The notifications of the stream reach the subscribers of `TVServiceAPI.h` in addition to those of `tv-control.h`;
 * neither affects the other. If the environment variable `LUMIO_TV` names a file, every program on the desktop plays
 * that file from its first factory call of the TV service on. A program that calls `Open` does not need the variable.
 *
 * The service reports the following, always for `PROFILE_MAIN` and screen 0:
 * - Signals, once to each new subscription and then when they change. Lock: `value` is 1 or 0. Service changed: `value`
 *   is the number of the service. Audio and video changed, when a new version of the service's stream table changes
 *   them: `value` is the PID of the first such stream and `extra` its stream type; both are 0 if there is none.
 *   Scrambled: `value` is 1 or 0. Strength: `value` is the percentage of packets without a transport error and `extra`
 *   the percentage without a continuity error, over the last second of the stream.
 * - Programmes of every service that the stream describes: first what is known already, then each change. The present
 *   and the following programme come as `PROGRAM_CHANGE_PRESENT` and `PROGRAM_CHANGE_FOLLOWING` with the positions 0
 *   and 1. The programmes of a list come as `PROGRAM_CHANGE_LIST`; the position of a programme is its place, by start
 *   time, among those that overlap the requested range. A list that is subscribed once comes when it is complete. The
 *   data stay valid until the process ends; do not change them.
 * - Sections of every PID, of up to 4096 bytes, in the order of the stream, including those with a wrong checksum.
 * - PES packets of the tuned service: `payload` is what follows the header; all bits of `pts` are set if the packet has
 *   no time stamp. Packets of more than 2 MiB are dropped.
 * - Captions of the tuned service: teletext subtitles and line 21. An empty text means that the captions disappear.
 * - Modules of data and object carousels, once for each version, with type and status 0. A session receives the
 *   carousel that its target names, "dvb://ONID.TSID.SID/TAG": the original network, the transport stream, the service
 *   and the component tag of the carousel's stream, in hexadecimal digits.
 *
 * The stream is read on a thread of its own, which starts with `Open` and ends with `Close` or when the process exits.
 *
 * You may call all functions on any thread, including from a callback of the service, but not from the packet listener
 * or from `Options::settle`. One stream can be open at a time. If none is open, the functions do nothing and return 0,
 * false or an empty list.
 */
#ifndef LUMIO_HOST_BROADCAST_H
#define LUMIO_HOST_BROADCAST_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "TVServiceTypes.h"

namespace lumio {
namespace broadcast {

/** How the stream's time passes. */
enum class Clock {
  RealTime, ///< follows the stream's own clock
  Virtual,  ///< passes only in `Advance`; for tests
  None      ///< passes as fast as the subscribers take the notifications
};

/** What happens at the stream's end. */
enum class AtEnd {
  Loop,      ///< the stream starts again
  LoseSignal ///< the signal is lost
};

/** How a stream is played. */
struct Options {
  Clock clock = Clock::RealTime; ///< how time passes
  AtEnd atEnd = AtEnd::Loop;     ///< what happens at the end
  double speed = 1;              ///< speed of the stream's clock, with `RealTime`
  bool paused = false;           ///< whether playing begins paused
  int service = 0;               ///< number of the service to tune to; 0: the lowest number
  /**
   * With `Clock::None`, the player calls this function on its thread after each portion of the stream, when all
   * callbacks of the service have returned. The player continues when `goOn` is called, on any thread. If your
   * callbacks send work to the main loop, call `goOn` there. If `settle` is null, the player continues at once.
   */
  std::function<void(std::function<void()> goOn)> settle;
};

/** A stream of a service. */
struct StreamInfo {
  unsigned short pid; ///< packet identifier
  unsigned char type; ///< stream_type
  std::string kind;   ///< "video", "audio", "subtitle", "teletext", "carousel", "section" or "other"
  int componentTag;   ///< number of the stream within the service; -1 if it has none
};

/** A service of the stream. */
struct ServiceInfo {
  int id;                          ///< number of the service, service_id
  TCServiceId serviceId;           ///< identifier of the service in programmes
  std::string name;                ///< UTF-8
  std::string provider;            ///< UTF-8
  unsigned short pmtPid;           ///< packet identifier of its stream table (PMT)
  bool scrambled;                  ///< whether any of its packets so far was scrambled
  std::vector<StreamInfo> streams; ///< in the order of the stream table
};

/** Counts since `Open`. */
struct Counts {
  std::uint64_t packets;           ///< packets of any kind
  std::uint64_t syncLosses;        ///< runs of bytes between packets that were skipped
  std::uint64_t transportErrors;   ///< packets marked as erroneous
  std::uint64_t continuityErrors;  ///< places where packets are missing
  std::uint64_t droppedPes;        ///< PES packets that were too long or incomplete
  std::uint64_t droppedProgrammes; ///< sections dropped because the space for programmes was full
};

/**
 * Opens a stream and starts to play it. Closes the stream that was open.
 *
 * @param file     path of the file
 * @param options  how to play it; copied
 * @return true on success. False, with a log message, if the file is not a transport stream; then no stream is open
 */
bool Open(const std::string &file, const Options &options = Options());

/** Stops playing. After it returns, the stream emits nothing more; `tv::Flush` waits for what it has emitted. */
void Close();

/** @return whether a stream is open, even if it has ended */
bool IsOpen();

/** @return whether the stream has ended and the signal is lost */
bool HasEnded();

/** @return the stream's services by number. `Open` looks for them in the first megabytes; playing may find more */
std::vector<ServiceInfo> Services();

/**
 * Tunes to a service. From now on the service reports the PES packets, captions and signals of this one.
 *
 * @param service  number of the service, which may appear later in the stream
 */
void Tune(int service);

/** @return number of the tuned service; 0 if none is tuned */
int TunedService();

/** Sets the speed of `Clock::RealTime`. @param speed  greater than 0; 1 is the speed of the broadcast */
void SetSpeed(double speed);

/** Stops the time of any clock, or lets it continue. @param paused  whether time stands still */
void Pause(bool paused);

/**
 * Lets time pass on the virtual clock. Returns when the stream up to that time has been played and emitted; `tv::Flush`
 * waits for the delivery. Returns at once when called from a callback of the service. Does nothing with another clock
 * or while paused.
 *
 * @param time  time that passes; not negative
 */
void Advance(std::chrono::milliseconds time);

/** @return time that has passed in the stream since `Open`, by the stream's own clock */
std::chrono::milliseconds Position();

/** @return the counts since `Open` */
Counts Counted();

/**
 * Sets the function that receives the stream's packets as they are played. It replaces the previous one. You may set it
 * before you open a stream; it stays set for the streams that follow.
 *
 * @param listener  called on the player's thread with 188 bytes, valid during the call; null for none. After the
 * function returns, the previous listener is not called again.
 */
void SetPacketListener(std::function<void(const unsigned char *packet)> listener);

/**
 * Passes on the tuned service as it is played, for example to a media player: a transport stream of this service alone,
 * which begins with its next tables. The player does not wait for the reader: data that does not fit in the pipe is
 * lost. The pipe ends when another service is tuned, when the signal is lost, at `Close` and `Open`, and at the next
 * call; call it again for what follows. When the stream loops, the same pipe continues and announces the
 * discontinuities.
 *
 * @return the reading end of a pipe, which the caller owns and closes. -1 with `errno` set on failure; `ENODEV` if no
 * stream is open
 */
int PassOn();

/** Ends the pipe of the last `PassOn`. */
void StopPassingOn();

} // namespace broadcast
} // namespace lumio

#endif
