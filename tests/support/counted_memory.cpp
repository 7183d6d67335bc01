#include "counted_memory.h"

#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

namespace {

std::atomic<std::size_t> g_held{0};
std::atomic<std::size_t> g_most{0};

} // namespace

namespace counted_memory {

std::size_t Held() { return g_held; }
std::size_t Most() { return g_most; }
void Restart() { g_most = g_held.load(); }

} // namespace counted_memory

// A sanitizer has an allocator of its own, which takes more for itself than the stream does. There nothing is counted.
#if !defined(__has_feature)
#define __has_feature(name) 0
#endif
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) && !__has_feature(address_sanitizer) &&            \
    !__has_feature(thread_sanitizer)

namespace {

void *Counted(void *memory) {
  const std::size_t held = g_held += malloc_usable_size(memory);
  std::size_t most = g_most;
  while (held > most && !g_most.compare_exchange_weak(most, held)) {
  }
  return memory;
}

} // namespace

extern "C" {

// The C library's own functions, behind those that it lets a program replace.
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *memory, std::size_t size);
void *__libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void *memory);

void *malloc(std::size_t size) { return Counted(__libc_malloc(size)); }
void *calloc(std::size_t count, std::size_t size) { return Counted(__libc_calloc(count, size)); }
void *memalign(std::size_t alignment, std::size_t size) { return Counted(__libc_memalign(alignment, size)); }
void *aligned_alloc(std::size_t alignment, std::size_t size) { return memalign(alignment, size); }

int posix_memalign(void **memory, std::size_t alignment, std::size_t size) {
  *memory = memalign(alignment, size);
  return *memory ? 0 : ENOMEM;
}

void *realloc(void *memory, std::size_t size) {
  const std::size_t before = malloc_usable_size(memory);
  void *moved = __libc_realloc(memory, size);
  if (moved || size == 0) {
    g_held -= before;
  }
  return Counted(moved);
}

void free(void *memory) {
  g_held -= malloc_usable_size(memory);
  __libc_free(memory);
}

} // extern "C"

#endif
