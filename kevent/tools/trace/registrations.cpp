#include "registrations.h"

#include "checks.h"
#include "session.h"

namespace lumio::trace {

void Registrations::CheckRegister(const char *function, const std::string &module, const void *callback,
                                  const void *caller) const {
  if (!callback) {
    Report({function, "callback", "null", module, "nothing was registered, because a registration needs a callback"},
           caller);
    return;
  }
  std::string other;
  {
    const Lock lock;
    const auto found = entries_.find(callback);
    if (found == entries_.end()) {
      return;
    }
    other = found->second.module;
  }
  Report({function, "callback", Describe(SymbolOf(callback)), module,
          "this callback is already registered by module " + other +
              ", and keeps its data: give each registration a function of its own"},
         caller);
}

void Registrations::CheckUnregister(const char *function, const std::string &module, const void *callback,
                                    const void *caller) const {
  bool known = false;
  {
    const Lock lock;
    known = entries_.count(callback) != 0;
  }
  if (!known) {
    Report({function, "callback", callback ? Describe(SymbolOf(callback)) : "null", module,
            "this callback is not registered: nothing was unregistered"},
           caller);
  }
}

void Registrations::Add(const std::string &module, const void *callback) {
  const Symbol symbol = SymbolOf(callback);
  const Lock lock;
  entries_[callback] = {module, symbol};
}

void Registrations::Remove(const void *callback) {
  const Lock lock;
  entries_.erase(callback);
}

std::string Registrations::Modules() const {
  const Lock lock;
  std::string modules;
  for (const auto &[callback, entry] : entries_) {
    modules += (modules.empty() ? "" : ", ") + entry.module;
  }
  return modules;
}

void Registrations::Visit(const CallbackVisitor &visit) const {
  for (const auto &[callback, entry] : entries_) {
    visit(what_, entry.module, entry.symbol, callback);
  }
}

void Registrations::Print(Text &text) const {
  for (const auto &[callback, entry] : entries_) {
    if (TheOptions().json) {
      text.Append("{\"event\":\"state\",\"%s\":", what_);
      text.AppendQuoted(entry.symbol.name.c_str());
      text.Append(",\"module\":");
      text.AppendQuoted(entry.module.c_str());
      text.Append("}\n");
    } else {
      text.Append("%s%-19s ", kMore, what_);
      text.AppendColumn(entry.module.c_str(), 18);
      text.Append(" ");
      text.AppendClean(entry.symbol.name.c_str());
      text.Append("\n");
    }
    Put(text);
  }
}

} // namespace lumio::trace
