// Sends what a broadcaster would send, through the desktop's stand-in for the TV service.
#pragma once

#include <TVServiceTypes.h>

#include <cstdint>
#include <string>
#include <vector>

void BroadcastSignal(ESignalType type, int value, int extra);

struct Programme {
  std::string title;
  std::int64_t start = 0;    // seconds since the epoch
  unsigned int duration = 0; // seconds
};
// The present or the following programme.
void BroadcastProgramme(EProgramChangeType change, const Programme &programme);
// The names of the services.
void BroadcastServices(const std::vector<std::string> &names);
void BroadcastCaption(const std::string &text);
// A packet like one of teletext, for this second of the programme.
void BroadcastPacket(int second, const std::string &text);
// A module of the data services that the viewer is attached to.
void BroadcastModule(int module, const std::string &text);
