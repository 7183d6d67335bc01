/**
 * @file broadcast.h
 * Plays a transport stream to the modules, as a tuner would.
 *
 * The stream's notifications reach the subscribers of `TVServiceAPI.h` beside those of `tv-control.h`; neither disturbs
 * the other. Any program of the desktop plays the file that the environment variable `LUMIO_TV` names, from the first
 * factory call of the TV service on; a program that opens a stream itself needs no variable.
 *
 * What is told, all of it for `PROFILE_MAIN` and screen 0:
 * - signals, when they change and once to each new subscription. Lock: `value` is 1 or 0. Service changed: `value` is
 *   the service's number. Audio and video changed, when another version of the service's streams says so: `value` is
 *   the PID and `extra` the stream type of the first such stream, both 0 without one. Scrambled: `value` is 1 or 0.
 *   Strength: `value` is the percentage of packets without transport error, `extra` of those without continuity error,
 *   over the last second of the stream;
 * - programmes: what is known at once, then what changes, of any service that the stream describes. Present and
 *   following come as `PROGRAM_CHANGE_PRESENT` and `PROGRAM_CHANGE_FOLLOWING` with the positions 0 and 1, the
 * programmes of a list as `PROGRAM_CHANGE_LIST` with their places among those that overlap the range, by start. A list
 * that is subscribed once is told when it is complete. The data stay to the process's end and are not to be changed;
 * - sections of any PID, up to 4096 bytes, in the stream's order, with wrong checksums too;
 * - PES packets of the tuned service: `payload` is what follows the header, `pts` has all bits set where there is none;
 *   packets of more than 2 MiB are dropped;
 * - captions of the tuned service: teletext subtitles and line 21. An empty text means that the captions vanish;
 * - modules of data and object carousels, type and status 0, once in each version, to sessions whose target is
 *   "dvb://ONID.TSID.SID/TAG": original network, transport stream and service and the component tag of the carousel's
 *   stream, in hexadecimal digits.
 *
 * The stream is read on a thread of its own, which starts with `Open` and ends with `Close` or at the process's exit.
 *
 * All functions may be called on any thread, also from callbacks of the service, but not from the packet listener and
 * `Options::settle`. There is one stream at a time; without one they do nothing and answer 0, false or nothing.
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
  RealTime, ///< as the stream's own clock says
  Virtual,  ///< with `Advance` only, for tests
  None      ///< as fast as what is told is taken
};

/** What happens at the stream's end. */
enum class AtEnd {
  Loop,      ///< it starts again
  LoseSignal ///< the signal is lost
};

/** How a stream is played. */
struct Options {
  Clock clock = Clock::RealTime; ///< how time passes
  AtEnd atEnd = AtEnd::Loop;     ///< what happens at the end
  double speed = 1;              ///< of the stream's clock, for `RealTime`
  bool paused = false;           ///< whether it begins with `Pause`
  int service = 0;               ///< number of the service to tune to; 0 is the one with the lowest number
  /**
   * Without clock: called on the player's thread after each portion of the stream, when all callbacks of the service
   * have returned. The player goes on when the function that it gets was called, on any thread; a program whose
   * callbacks reach the main loop calls it there. Null: the player goes on at once.
   */
  std::function<void(std::function<void()> goOn)> settle;
};

/** A stream of a service. */
struct StreamInfo {
  unsigned short pid; ///< packet identifier
  unsigned char type; ///< stream_type
  std::string kind;   ///< "video", "audio", "subtitle", "teletext", "carousel", "section" or "other"
  int componentTag;   ///< its number within the service, -1 without one
};

/** A service of the stream. */
struct ServiceInfo {
  int id;                          ///< its number, service_id
  TCServiceId serviceId;           ///< how programmes name it
  std::string name;                ///< UTF-8
  std::string provider;            ///< UTF-8
  unsigned short pmtPid;           ///< packet identifier of the table of its streams
  bool scrambled;                  ///< whether a packet of it was scrambled so far
  std::vector<StreamInfo> streams; ///< in the order of its table
};

/** What was counted since `Open`. */
struct Counts {
  std::uint64_t packets;           ///< of any kind
  std::uint64_t syncLosses;        ///< runs of bytes that were no packets
  std::uint64_t transportErrors;   ///< packets marked as erroneous
  std::uint64_t continuityErrors;  ///< places where packets are missing
  std::uint64_t droppedPes;        ///< PES packets that were too long or broken off
  std::uint64_t droppedProgrammes; ///< sections with programmes that there was no room for
};

/**
 * Opens a stream and starts to play it, in place of one that was open.
 *
 * @param file     its path
 * @param options  copied
 * @return whether the file is a transport stream; if not, the log says why, and nothing is open
 */
bool Open(const std::string &file, const Options &options = Options());

/** Stops playing. Nothing is emitted once it has returned; `tv::Flush` waits for what was emitted before. */
void Close();

/** @return whether a stream is open, played to its end or not */
bool IsOpen();

/** @return whether the stream was played to its end and the signal is lost */
bool HasEnded();

/** @return the stream's services by number: from its first megabytes, until playing has found them all */
std::vector<ServiceInfo> Services();

/**
 * Tunes to a service: its PES packets, captions and signals are told from now on.
 *
 * @param service  its number; it may also appear later in the stream
 */
void Tune(int service);

/** @return number of the service that is tuned to, 0 as long as there is none */
int TunedService();

/** @param speed  of the stream's clock in real time, above 0; 1 is the broadcaster's */
void SetSpeed(double speed);

/** @param paused  whether time stands still, whatever the clock */
void Pause(bool paused);

/**
 * Lets time pass on the virtual clock and returns when everything up to then was played and emitted; `tv::Flush` waits
 * for its delivery. From a callback of the service it returns at once. On another clock, or when paused, it does
 * nothing.
 *
 * @param time  how long; not negative
 */
void Advance(std::chrono::milliseconds time);

/** @return the stream's time since `Open`, from its own clock */
std::chrono::milliseconds Position();

/** @return what was counted since `Open` */
Counts Counted();

/**
 * Sets who is passed the stream's packets as they are played, in place of an earlier one. It may be set before a stream
 * is open and stays for the next ones.
 *
 * @param listener  called on the player's thread with 188 bytes, valid during the call; null for nobody. The one before
 *                  is not called any more once the function has returned.
 */
void SetPacketListener(std::function<void(const unsigned char *packet)> listener);

/**
 * Passes on the tuned service as it is played, for example to a media player: a transport stream of this service alone,
 * from its next tables on. The player waits for no reader: what finds no room in the pipe is lost. The pipe ends when
 * another service is tuned to, when the signal is lost, with `Close` and `Open`, and with the next call: then call it
 * again for what follows. A stream that starts again goes on in the same pipe, with the discontinuities announced.
 *
 * @return the reading end of a pipe, which the caller owns and closes; -1 with `errno` set, `ENODEV` without a stream
 */
int PassOn();

/** Ends the pipe that was made last. */
void StopPassingOn();

} // namespace broadcast
} // namespace lumio

#endif
