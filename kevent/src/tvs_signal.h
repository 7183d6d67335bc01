// Signal subscriptions, from setting the callback to the release.
#pragma once

#include <TVServiceSubscriber.h>

namespace lumio::tvs {

// Calls the modules that subscribe to the signal, on the main-loop thread.
void HandleSignal(const TSignalEvent &event);

// Unsubscribes each signal at the service and destroys its subscriber. Call it with the lock held.
void ReleaseSignals();

} // namespace lumio::tvs
