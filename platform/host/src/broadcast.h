// What the services know of the player.
#pragma once

namespace lumio::broadcast {

// Opens the stream that LUMIO_TV names, the first time that it is called and unless one is open.
void OpenFromEnvironment();

} // namespace lumio::broadcast
