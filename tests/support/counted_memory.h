// Counts the bytes that the process and its libraries have allocated and not yet released, on all threads.
#pragma once

#include <cstddef>

namespace counted_memory {

std::size_t Held();
// Returns the largest number of bytes held since `Restart`.
std::size_t Most();
void Restart();

} // namespace counted_memory
