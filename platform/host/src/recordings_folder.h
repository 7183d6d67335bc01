// The folder of the recordings.
#pragma once

#include <string>

namespace lumio {

// Returns LUMIO_RECORDINGS if it is set, or else the user's folder for videos: XDG_VIDEOS_DIR from the environment, or
// from user-dirs.dirs, or "Videos" in the home folder.
std::string RecordingsFolder();

} // namespace lumio
