// The session's input, written to a file that lumio-replay plays.
#pragma once

#include <string>

#include "clock.h"

namespace lumio::trace {

void RecordKey(const std::string &key, bool press, const std::string &device, Nanoseconds posted);
void RecordDevice(const std::string &device);
void RecordDevices();
void RecordStall(Nanoseconds duration);

} // namespace lumio::trace
