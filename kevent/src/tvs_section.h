// Section subscriptions, from setting the callback to the release. Sections do not go over the main loop.
#pragma once

namespace lumio::tvs {

// Unsubscribes the sections at the service and destroys its subscriber. Call it with the lock held.
void ReleaseSections();

} // namespace lumio::tvs
