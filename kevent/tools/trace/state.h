// Prints everything that the tracer knows.
#pragma once

namespace lumio::trace {

// Call it with the lock held, or in a signal handler while nobody holds it. It allocates nothing.
void PrintState();

} // namespace lumio::trace
