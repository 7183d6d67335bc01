#include "next.h"

#include <dlfcn.h>
#include <link.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace lumio::trace {

namespace {

constexpr char kLibrary[] = "liblumio-kevent.so.1";

// Searches a loaded object and the objects that it is linked with.
void *FindIn(const char *object, const char *name) {
  void *handle = dlopen(object, RTLD_LAZY | RTLD_NOLOAD);
  if (!handle) {
    return nullptr;
  }
  void *found = dlsym(handle, name);
  dlclose(handle);
  return found;
}

int NoteName(dl_phdr_info *object, size_t, void *names) {
  if (object->dlpi_name && *object->dlpi_name) { // the program itself has none
    static_cast<std::vector<std::string> *>(names)->emplace_back(object->dlpi_name);
  }
  return 0;
}

// A module may have loaded the library, or a program EFL, with local names.
void *FindInObjects(const char *name) {
  void *found = FindIn(kLibrary, name);
  std::vector<std::string> objects;
  if (!found) {
    dl_iterate_phdr(NoteName, &objects);
  }
  for (auto object = objects.begin(); !found && object != objects.end(); ++object) {
    found = FindIn(object->c_str(), name);
  }
  return found;
}

} // namespace

std::atomic<unsigned> g_unloads{0};

void *FindNext(const char *name) {
  void *found = dlsym(RTLD_NEXT, name);
  return found ? found : FindInObjects(name);
}

// Searches from the program on, because the linker may have moved the variable there.
void *FindVariable(const char *name) {
  void *found = dlsym(RTLD_DEFAULT, name);
  return found ? found : FindInObjects(name);
}

void NobodyDefines(const char *name) {
  fprintf(stderr, "lumio-trace: %s was called, but no loaded library defines it\n", name);
  abort();
}

} // namespace lumio::trace
