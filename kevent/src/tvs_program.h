// Programme subscriptions, from setting the callback to the release.
#pragma once

#include <TVServiceSubscriber.h>

namespace lumio::tvs {

// Calls the module of the handle, on the main-loop thread.
void HandleProgram(const TProgramEvent &event);

// Ends each subscription at the service and destroys its subscriber. Call it with the lock held.
void ReleasePrograms();

} // namespace lumio::tvs
