// Checks the memory that the library frees: where it comes from, and who else frees it.
#pragma once

namespace lumio::trace {

// Returns what the address is if it cannot come from malloc ("on the stack", for example); null if it can.
const char *WhyNotFromHeap(const void *address);

// Records that the library will free the memory. From now on the program must not.
void LibraryOwns(void *data);
// Records that the library frees the memory now. The program must not free it again.
void LibraryFrees(void *data);

} // namespace lumio::trace
