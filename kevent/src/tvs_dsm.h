// DSM sessions, from the attachment to the release. Messages do not go over the main loop.
#pragma once

namespace lumio::tvs {

// Detaches each session and destroys the service's DSM object. Call it with the lock held.
void ReleaseDsm();

} // namespace lumio::tvs
