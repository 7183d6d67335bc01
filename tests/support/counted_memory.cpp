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

// Replaces all forms, because a sanitizer defines each of them.

void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
  void *memory = std::malloc(size);
  if (!memory) {
    return nullptr;
  }
  const std::size_t held = g_held += malloc_usable_size(memory);
  std::size_t most = g_most;
  while (held > most && !g_most.compare_exchange_weak(most, held)) {
  }
  return memory;
}

void *operator new(std::size_t size) {
  void *memory = operator new(size, std::nothrow);
  if (!memory) {
    throw std::bad_alloc();
  }
  return memory;
}

void *operator new[](std::size_t size) { return operator new(size); }
void *operator new[](std::size_t size, const std::nothrow_t &) noexcept { return operator new(size, std::nothrow); }

void operator delete(void *memory) noexcept {
  g_held -= malloc_usable_size(memory);
  std::free(memory);
}

void operator delete[](void *memory) noexcept { operator delete(memory); }
void operator delete(void *memory, std::size_t) noexcept { operator delete(memory); }
void operator delete[](void *memory, std::size_t) noexcept { operator delete(memory); }
void operator delete(void *memory, const std::nothrow_t &) noexcept { operator delete(memory); }
void operator delete[](void *memory, const std::nothrow_t &) noexcept { operator delete(memory); }
