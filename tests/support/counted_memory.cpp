#include "counted_memory.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> g_held{0};
std::atomic<std::size_t> g_most{0};

} // namespace

namespace counted_memory {

std::size_t Held() { return g_held; }
std::size_t Most() { return g_most; }
void Restart() { g_most = g_held.load(); }

} // namespace counted_memory

void *operator new(std::size_t size) {
  void *memory = std::malloc(size);
  if (!memory) {
    throw std::bad_alloc();
  }
  const std::size_t held = g_held += malloc_usable_size(memory);
  std::size_t most = g_most;
  while (held > most && !g_most.compare_exchange_weak(most, held)) {
  }
  return memory;
}

void operator delete(void *memory) noexcept {
  g_held -= malloc_usable_size(memory);
  std::free(memory);
}

void *operator new[](std::size_t size) { return operator new(size); }
void operator delete[](void *memory) noexcept { operator delete(memory); }
void operator delete(void *memory, std::size_t) noexcept { operator delete(memory); }
void operator delete[](void *memory, std::size_t) noexcept { operator delete(memory); }
