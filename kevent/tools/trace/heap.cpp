// Wraps free(): keeps what the library has freed for a while, so that malloc() does not reuse the address and a second
// free() by the program is recognised.
#include "heap.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "checks.h"

#pragma GCC visibility push(default)
extern "C" int __sanitizer_get_ownership(const volatile void *) __attribute__((weak));
#pragma GCC visibility pop

namespace lumio::trace {

namespace {

// Looked up once: the dynamic linker itself calls free() while it loads and unloads.
void Free(void *data) {
  static std::atomic<void (*)(void *)> next{nullptr};
  if (!next) {
    next = reinterpret_cast<void (*)(void *)>(dlsym(RTLD_NEXT, "free"));
  }
  next.load()(data);
}

constexpr int kWatched = 256; // addresses
constexpr int kKept = 64;     // of those, freed by the library but not yet passed to free()

enum class Owner { kNobody, kLibrary, kFreeing, kFreed };

// A table that allocates nothing: free() itself searches it.
struct Watched {
  std::atomic<void *> data{nullptr};
  std::atomic<Owner> owner{Owner::kNobody};
};

Watched g_watched[kWatched];
std::atomic<int> g_watched_count{0};
std::atomic<std::uint64_t> g_filter{0}; // a bit for each watched address, so that most calls of free() stay fast
std::atomic<int> g_oldest{0};

std::uint64_t BitOf(const void *data) { return std::uint64_t{1} << (reinterpret_cast<std::uintptr_t>(data) >> 4 & 63); }

Watched *Find(const void *data) {
  if (!(g_filter & BitOf(data))) {
    return nullptr;
  }
  for (Watched &watched : g_watched) {
    if (watched.data == data) {
      return &watched;
    }
  }
  return nullptr;
}

void Watch(void *data, Owner owner) {
  for (Watched &watched : g_watched) {
    void *nobody = nullptr;
    if (watched.data.compare_exchange_strong(nobody, data)) {
      watched.owner = owner;
      g_filter |= BitOf(data);
      ++g_watched_count;
      return;
    }
  }
}

void Unwatch(Watched &watched) {
  watched.owner = Owner::kNobody;
  watched.data = nullptr;
  --g_watched_count;
}

// Frees the oldest kept memory if too much is kept.
void GiveBack() {
  int kept = 0;
  for (const Watched &watched : g_watched) {
    kept += watched.owner == Owner::kFreed ? 1 : 0;
  }
  for (int i = 0; i < kWatched && kept > kKept; ++i) {
    Watched &watched = g_watched[(g_oldest++ & 0x7fffffff) % kWatched];
    if (watched.owner == Owner::kFreed) {
      void *data = watched.data;
      Unwatch(watched);
      Free(data);
      --kept;
    }
  }
}

void ReportFree(void *data, const char *advice, const void *caller) {
  Report({"free", "data", Pointer(data), "", advice}, caller);
}

bool IsInLine(const std::string &line, std::uintptr_t address, std::string *name) {
  unsigned long begin = 0;
  unsigned long end = 0;
  char permissions[5] = {};
  int rest = 0;
  if (sscanf(line.c_str(), "%lx-%lx %4s %*s %*s %*s %n", &begin, &end, permissions, &rest) < 3 || address < begin ||
      address >= end) {
    return false;
  }
  *name = permissions[1] == 'w' ? line.substr(static_cast<size_t>(rest)) : "read-only";
  return true;
}

bool IsOnThisStack(const void *address) {
  pthread_attr_t attributes;
  void *base = nullptr;
  size_t size = 0;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) {
    return false;
  }
  pthread_attr_getstack(&attributes, &base, &size);
  pthread_attr_destroy(&attributes);
  return address >= base && address < static_cast<const char *>(base) + size;
}

} // namespace

const char *WhyNotFromHeap(const void *data) {
  const auto address = reinterpret_cast<std::uintptr_t>(data);
  Dl_info info;
  if (IsOnThisStack(data)) {
    return "on the stack";
  }
  if (dladdr(data, &info)) {
    return "a static variable or constant";
  }
  if (__sanitizer_get_ownership) {
    return __sanitizer_get_ownership(data) ? nullptr : "not what malloc() returned";
  }
  if (address % alignof(std::max_align_t) != 0) {
    return "not what malloc() returned";
  }
  std::ifstream maps("/proc/self/maps");
  std::string name;
  for (std::string line; std::getline(maps, line);) {
    if (IsInLine(line, address, &name)) {
      return name.empty() || name == "[heap]" || name.rfind("[anon", 0) == 0 ? nullptr : "not from the heap";
    }
  }
  return "not memory of this process";
}

void LibraryOwns(void *data) {
  if (Watched *watched = Find(data)) {
    watched->owner = Owner::kLibrary;
  } else {
    Watch(data, Owner::kLibrary);
  }
}

void LibraryFrees(void *data) {
  if (Watched *watched = Find(data)) {
    watched->owner = Owner::kFreeing;
  }
}

} // namespace lumio::trace

using namespace lumio::trace;

// gcc takes a built-in function for visible anyway, clang does not.
extern "C" __attribute__((visibility("default"))) void free(void *data) noexcept {
  Watched *watched = data && g_watched_count != 0 ? Find(data) : nullptr;
  if (!watched) {
    Free(data);
    return;
  }
  const void *caller = __builtin_return_address(0);
  if (watched->owner == Owner::kFreeing) {
    watched->owner = Owner::kFreed; // by the library
    GiveBack();
    return;
  }
  const bool twice = watched->owner == Owner::kFreed;
  Unwatch(*watched);
  ReportFree(
      data,
      twice ? "the library freed it when the callback was deleted: do not free it again"
            : "lumio_banner_state_cb_add() gave it to the library, which frees it when the callback is deleted: do "
              "not free it",
      caller);
  if (twice) {
    Free(data); // the library's own free(), which was postponed
  }
  Free(data);
}
