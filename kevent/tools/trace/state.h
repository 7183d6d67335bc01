// All that the tracer knows, printed at once.
#pragma once

namespace lumio::trace {

// With the lock held, or in a signal handler while nobody holds it. Allocates nothing.
void PrintState();

} // namespace lumio::trace
