// Where recordings go.
#pragma once

#include <string>

namespace lumio {

// LUMIO_RECORDINGS, else the user's folder for videos, as the environment or the user's list of folders names it.
std::string RecordingsFolder();

} // namespace lumio
