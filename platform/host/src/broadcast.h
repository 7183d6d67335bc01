// What the services need of the player.
#pragma once

namespace lumio::broadcast {

// The first call opens the stream that LUMIO_TV names, unless a stream is open.
void OpenFromEnvironment();

} // namespace lumio::broadcast
