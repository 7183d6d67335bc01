// Counts the bytes that the process holds by `new`, on all threads.
#pragma once

#include <cstddef>

namespace counted_memory {

std::size_t Held();
// The most that were held since `Restart`.
std::size_t Most();
void Restart();

} // namespace counted_memory
