#include "symbols.h"

#include <cxxabi.h>
#include <dlfcn.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "next.h"
#include "symbol_table.h"

namespace lumio::trace {

namespace {

std::string Demangled(const char *name) {
  int status = 0;
  const std::unique_ptr<char, void (*)(void *)> text(abi::__cxa_demangle(name, nullptr, nullptr, &status), free);
  return text ? text.get() : name;
}

// Without the parameters, which are the same for all callbacks of a kind.
std::string WithoutParameters(const std::string &name) {
  size_t end = name.rfind(')');
  if (end == std::string::npos || name.find("::", end) != std::string::npos) {
    return name;
  }
  int depth = 0;
  do {
    depth += name[end] == ')' ? 1 : name[end] == '(' ? -1 : 0;
  } while (depth > 0 && end-- > 0);
  return depth == 0 && end > 0 ? name.substr(0, end) : name;
}

// A lambda that was converted to a function pointer has the name of the function that contains it.
std::string Shortened(std::string name) {
  for (const char *ending : {"::_FUN", "::__invoke"}) {
    const size_t at = name.rfind(ending);
    if (at != std::string::npos && at + strlen(ending) == name.size()) {
      name.erase(at);
    }
  }
  for (const auto &[from, to] : {std::pair("(anonymous namespace)::", ""), std::pair("{anonymous}::", "")}) {
    for (size_t at = name.find(from); at != std::string::npos; at = name.find(from)) {
      name.replace(at, strlen(from), to);
    }
  }
  return name;
}

std::string Offset(const std::string &object, std::uintptr_t offset) {
  char text[32];
  snprintf(text, sizeof text, "+0x%lx", static_cast<unsigned long>(offset));
  return object + text;
}

const char *BaseName(const char *path) {
  const char *slash = strrchr(path, '/');
  return slash ? slash + 1 : path;
}

} // namespace

Symbol SymbolOf(const void *address) {
  const int error = errno;
  Symbol symbol;
  Dl_info info;
  if (!address || !dladdr(address, &info) || !info.dli_fbase) {
    symbol.name = Offset("", reinterpret_cast<std::uintptr_t>(address)).substr(1);
    symbol.object = "no object";
    errno = error;
    return symbol;
  }
  const std::uintptr_t offset =
      reinterpret_cast<std::uintptr_t>(address) - reinterpret_cast<std::uintptr_t>(info.dli_fbase);
  symbol.base = info.dli_fbase;
  symbol.object = info.dli_fname && *info.dli_fname ? BaseName(info.dli_fname) : program_invocation_short_name;
  const std::string name = info.dli_sname ? info.dli_sname : NameInFile(info.dli_fname, offset);
  symbol.name =
      name.empty() ? Offset(symbol.object, offset) : Shortened(WithoutParameters(Shortened(Demangled(name.c_str()))));
  errno = error;
  return symbol;
}

std::string Describe(const Symbol &symbol) {
  const bool names_object = symbol.name.compare(0, symbol.object.size(), symbol.object) == 0;
  return names_object ? symbol.name : symbol.name + " (" + symbol.object + ")";
}

bool IsInLibrary(const void *address) {
  Dl_info library;
  Dl_info object;
  const void *known = FindNext("lumio_kevent_init");
  return known && dladdr(known, &library) && dladdr(address, &object) && library.dli_fbase == object.dli_fbase;
}

} // namespace lumio::trace
