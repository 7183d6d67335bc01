// PES and caption subscriptions, from subscribing to the release. The two streams differ in their names only.
#pragma once

#include <TVServiceSubscriber.h>

namespace lumio::tvs {

// Delete the event's data, after calling the modules that subscribe to the stream, on the main-loop thread.
void HandlePes(const TPesEvent &event);
void HandleCaption(const TCaptionEvent &event);

// Destroy the service's subscriber of the stream. Call them with the lock held.
void ReleasePes();
void ReleaseCaptions();

} // namespace lumio::tvs
