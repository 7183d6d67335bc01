/**
 * @file TVServiceTypes.h
 * Records and enumerations of the platform's TV service.
 */
#ifndef TVSERVICETYPES_H
#define TVSERVICETYPES_H

#include <cstdint>
#include <string>
#include <vector>

#include "Kestrel/TCMarshalable.h"

/** What a signal notification reports. */
enum ESignalType : int {
  SIGNAL_TYPE_LOCK = 0,            ///< the tuner gained or lost the signal
  SIGNAL_TYPE_SERVICE_CHANGED = 1, ///< another service is shown
  SIGNAL_TYPE_AUDIO_CHANGED = 2,   ///< the audio format changed
  SIGNAL_TYPE_VIDEO_CHANGED = 3,   ///< the video format changed
  SIGNAL_TYPE_SCRAMBLED = 4,       ///< the service became scrambled or clear
  SIGNAL_TYPE_STRENGTH = 5         ///< strength and quality were measured
};

/** Which picture of the television a subscription belongs to. */
enum EProfile : int {
  PROFILE_NONE = 0, ///< no picture
  PROFILE_MAIN = 1, ///< the main picture
  PROFILE_PIP = 2   ///< the picture in the picture
};

/** What changed in the programme data. */
enum EProgramChangeType : int {
  PROGRAM_CHANGE_PRESENT = 0,   ///< another programme is present
  PROGRAM_CHANGE_FOLLOWING = 1, ///< another programme is following
  PROGRAM_CHANGE_LIST = 2       ///< the list of programmes changed
};

/** How a programme list is reported. */
enum ESubscribeType : int {
  SUBSCRIBE_TYPE_ONCE = 0,    ///< once, when it is complete
  SUBSCRIBE_TYPE_CHANGES = 1, ///< with every change
};

/** Which programme tables the service watches. */
enum EProgramMonitoringType : int {
  PROGRAM_MONITORING_NONE = 0,              ///< none
  PROGRAM_MONITORING_PRESENT_FOLLOWING = 1, ///< present and following
  PROGRAM_MONITORING_SCHEDULE = 2           ///< the schedule as well
};

/** Kind of a DSM data service. */
enum EDsmDataServiceType : int {
  DSM_DATA_SERVICE_OBJECT_CAROUSEL = 0, ///< object carousel
  DSM_DATA_SERVICE_DATA_CAROUSEL = 1    ///< data carousel
};

/** How a DSM session begins. */
enum EDsmAttachType : int {
  DSM_ATTACH_NORMAL = 0, ///< at the next cycle of the carousel
  DSM_ATTACH_CACHED = 1  ///< with what the service has in its cache
};

/** Data of a signal notification: 8 bytes, passed by value. */
struct TSSignalData {
  std::int32_t value; ///< for example 1 locked, 0 lost; or a strength in percent
  std::int32_t extra; ///< for example the quality in percent
};
static_assert(sizeof(TSSignalData) == 8, "the service passes it in one 8-byte register");

/** Identifies a service: original network, transport stream and service id, 16 bits each. */
typedef unsigned long long TCServiceId;

/** One programme (event) of a service. */
class TCProgramData {
public:
  TCServiceId serviceId = 0;  ///< service that carries the programme
  unsigned short eventId = 0; ///< number within the service
  std::int64_t startTime = 0; ///< seconds since the epoch, UTC
  unsigned int duration = 0;  ///< seconds
  std::string title;          ///< UTF-8
  std::string description;    ///< UTF-8
};

/** Selects one programme. */
class TCProgramFilteringItem {
public:
  TCServiceId serviceId = 0;  ///< service that carries the programme
  unsigned short eventId = 0; ///< number within the service
};

/** Selects sections by stream and table. */
class TCSectionCriteriaHelper {
public:
  unsigned short pid = 0;    ///< packet identifier of the stream
  unsigned char tableId = 0; ///< table_id of the sections
};

/** Selects sections by stream and by a mask over their first bytes. */
class TCSectionFilterCriteriaHelper {
public:
  unsigned short pid = 0;           ///< packet identifier of the stream
  std::vector<unsigned char> match; ///< first bytes that a section must have
  std::vector<unsigned char> mask;  ///< bits of `match` that count
};

/** One PES packet. */
struct TSPESData : public TCMarshalable {
  unsigned short pid = 0;             ///< packet identifier of the stream
  unsigned char streamId = 0;         ///< stream_id of the packet
  unsigned long long pts = 0;         ///< presentation time stamp, in units of 90 kHz
  std::vector<unsigned char> payload; ///< the packet's bytes
};

/** One caption. */
struct TSCaption : public TCMarshalable {
  int language = 0;                   ///< three letters of the language code, the last one in the lowest byte
  unsigned long long pts = 0;         ///< presentation time stamp, in units of 90 kHz
  std::vector<unsigned char> payload; ///< UTF-8 text, no terminating zero
};

/** One message of a DSM session. */
struct TSDsmMessage {
  std::int32_t type;     ///< kind of the message
  std::int32_t status;   ///< 0, or an error code
  std::int32_t version;  ///< version of the module
  int sessionHandle;     ///< session that receives the message
  std::int32_t moduleId; ///< module that the message carries
  std::uint32_t size;    ///< size of `data` in bytes
  const void *data;      ///< the module's bytes; valid during the callback only
};

#endif
