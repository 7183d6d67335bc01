// Memory that the library frees: where it comes from, and who else frees it.
#pragma once

namespace lumio::trace {

// What the address is when it cannot come from malloc ("on the stack", for example); null when it can.
const char *WhyNotFromHeap(const void *address);

// The library will free it. From now on the program must not.
void LibraryOwns(void *data);
// The library frees it now. The program must not do so again.
void LibraryFrees(void *data);

} // namespace lumio::trace
