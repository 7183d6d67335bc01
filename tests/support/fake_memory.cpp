#include "fake_memory.h"

#include <Eina.h>
#include <dlfcn.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>

#include "uncounted.h"

namespace {

thread_local int g_fail_nth;
thread_local int g_made;
thread_local ReleaseWatch *g_watches;

bool Fails() { return !Uncounted::Active() && ++g_made == g_fail_nth; }

// Returns the next definition of a function: the C library's, or the sanitizer's.
template <class Function> Function Next(const char *name) { return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name)); }

// Serves dlsym, which may allocate while it looks up the first allocator. This early memory is never released.
alignas(std::max_align_t) char g_early[4096];
size_t g_early_used;
bool g_looking_up;

void *EarlyAllocation(size_t size) {
  void *memory = g_early + g_early_used;
  g_early_used += (size + alignof(std::max_align_t) - 1) / alignof(std::max_align_t) * alignof(std::max_align_t);
  return g_early_used <= sizeof g_early ? memory : nullptr;
}

bool IsEarly(const void *memory) { return memory >= g_early && memory < g_early + sizeof g_early; }

struct Allocator {
  void *(*allocate)(size_t);
  void *(*allocate_zeroed)(size_t, size_t);
  void *(*reallocate)(void *, size_t);
  void (*release)(void *);
};
Allocator g_real;

// The first allocation of the process fills it, before there are threads and before a sanitizer's runtime is ready.
// Therefore it is not a static variable inside a function, which the runtime would guard.
const Allocator &Real() {
  if (!g_real.release) {
    g_looking_up = true;
    g_real.allocate = Next<decltype(g_real.allocate)>("malloc");
    g_real.allocate_zeroed = Next<decltype(g_real.allocate_zeroed)>("calloc");
    g_real.reallocate = Next<decltype(g_real.reallocate)>("realloc");
    g_real.release = Next<decltype(g_real.release)>("free");
    g_looking_up = false;
  }
  return g_real;
}

void *OutOfMemory() {
  errno = ENOMEM;
  return nullptr;
}

// Makes every link of an Eina list an allocation of its own, which is released at once. Lists only: Ecore leaks from
// such a pool.
const bool g_single_links = [] {
  setenv("EINA_MEMPOOL", "pass_through", 1);
  setenv("EINA_FREEQ_BYPASS", "1", 1);
  const bool up = eina_init() != 0;
  unsetenv("EINA_MEMPOOL");
  unsetenv("EINA_FREEQ_BYPASS");
  return up;
}();

} // namespace

ReleaseWatch::ReleaseWatch(const void *memory) : memory_(memory), next_(g_watches) { g_watches = this; }

ReleaseWatch::~ReleaseWatch() { g_watches = next_; }

void ReleaseWatch::Released(const void *memory) {
  for (ReleaseWatch *watch = Uncounted::Active() ? nullptr : g_watches; watch; watch = watch->next_) {
    if (memory && (!watch->memory_ || watch->memory_ == memory)) {
      ++watch->count_;
    }
  }
}

void FailAllocation(int nth) {
  g_made = 0;
  g_fail_nth = nth;
}

int AllocationsMade() { return g_made; }

extern "C" {

void *malloc(size_t size) {
  if (g_looking_up) {
    return EarlyAllocation(size);
  }
  return Fails() ? OutOfMemory() : Real().allocate(size);
}

void *calloc(size_t count, size_t size) {
  if (g_looking_up) {
    return EarlyAllocation(count * size);
  }
  return Fails() ? OutOfMemory() : Real().allocate_zeroed(count, size);
}

void *realloc(void *memory, size_t size) { return Fails() ? OutOfMemory() : Real().reallocate(memory, size); }

char *strdup(const char *text) { // the sanitizer's strdup does not call this file's malloc
  auto *copy = static_cast<char *>(malloc(strlen(text) + 1));
  return copy ? strcpy(copy, text) : nullptr;
}

void free(void *memory) {
  ReleaseWatch::Released(memory);
  if (!IsEarly(memory)) {
    Real().release(memory);
  }
}

} // extern "C"

void *operator new(size_t size) {
  void *memory = malloc(size ? size : 1);
  if (!memory) {
    throw std::bad_alloc();
  }
  return memory;
}

void *operator new[](size_t size) { return operator new(size); }
void operator delete(void *memory) noexcept { free(memory); }
void operator delete[](void *memory) noexcept { free(memory); }
void operator delete(void *memory, size_t) noexcept { free(memory); }
void operator delete[](void *memory, size_t) noexcept { free(memory); }
