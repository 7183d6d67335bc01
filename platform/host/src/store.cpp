#include "store.h"

#include "database.h"

#include <pthread.h>
#include <pwd.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

namespace lumio::store {

namespace {

constexpr size_t kMaxKey = 511; // LMDB's own limit

std::string Variable(const char *name) {
  const char *value = getenv(name);
  return value ? value : "";
}

// The base directories of the user must be absolute paths; relative ones are ignored.
std::string BaseDirectory(const char *variable) {
  const std::string path = Variable(variable);
  return path[0] == '/' ? path : "";
}

std::string Home() {
  char buffer[4096];
  struct passwd entry, *found = nullptr;
  std::string home = BaseDirectory("HOME");
  if (home.empty() && getpwuid_r(geteuid(), &entry, buffer, sizeof buffer, &found) == 0 && found) {
    return found->pw_dir;
  }
  return home;
}

std::string MemoryDirectory() {
  const std::string all = Variable("LUMIO_VCONF_DIR"), runtime = BaseDirectory("XDG_RUNTIME_DIR");
  if (!all.empty()) {
    return all + "/memory";
  }
  // Without a session manager: memory that lasts until the machine is shut down.
  return runtime.empty() ? "/dev/shm/lumio-memory-" + std::to_string(geteuid()) : runtime + "/lumio/memory";
}

std::string DbDirectory() {
  const std::string all = Variable("LUMIO_VCONF_DIR"), data = BaseDirectory("XDG_DATA_HOME");
  if (!all.empty()) {
    return all + "/db";
  }
  return (data.empty() ? Home() + "/.local/share" : data) + "/lumio/db";
}

struct Branch {
  const char *prefix; // of all its keys
  Database database;
};

// Made when the library is loaded, before any thread can fork. The seeds are the known keys with an initial value.
// db/FactoryApp/Aging is not among them: it is absent until the factory sets it.
std::array<Branch, 2> &g_branches = *new std::array<Branch, 2>{{
    // never destroyed: threads may outlive the end of main()
    {"db/", {DbDirectory, MDB_NOMETASYNC, true, {}}},
    {"memory/", {MemoryDirectory, MDB_NOSYNC, false, {{"memory/lumio/lumio_banner_state_1", 0}}}},
}};

template <void (Database::*Step)()> void InEachDatabase() {
  for (Branch &branch : g_branches) {
    (branch.database.*Step)();
  }
}

[[maybe_unused]] const int g_fork_handlers =
    pthread_atfork(InEachDatabase<&Database::BeforeFork>, InEachDatabase<&Database::AfterForkInParent>,
                   InEachDatabase<&Database::AfterForkInChild>);

// A thread's slots in the reader tables, released when the thread ends. Not a thread_local object: registering its
// destructor aborts the program when memory is short.
struct Readers {
  std::array<Reader, 2> of{{Reader(g_branches[0].database), Reader(g_branches[1].database)}};
};

const pthread_key_t g_readers = [] {
  pthread_key_t key = PTHREAD_KEYS_MAX; // which no function accepts, should there be no key
  pthread_key_create(&key, [](void *readers) { delete static_cast<Readers *>(readers); });
  return key;
}();

Readers &ReadersOfThread() {
  auto *readers = static_cast<Readers *>(pthread_getspecific(g_readers));
  if (!readers) {
    auto made = std::make_unique<Readers>();
    if (pthread_setspecific(g_readers, made.get()) != 0) {
      throw std::bad_alloc();
    }
    readers = made.release();
  }
  return *readers;
}

template <class Body> int Read(Branch &branch, const Body &body) {
  return branch.database.Read(ReadersOfThread().of[&branch - g_branches.data()], body);
}

Branch *BranchOfPrefix(const char *prefix) {
  for (Branch &branch : g_branches) {
    if (prefix && strncmp(prefix, branch.prefix, strlen(branch.prefix)) == 0) {
      return &branch;
    }
  }
  return nullptr;
}

// Returns null for an invalid key.
Branch *BranchOf(const char *key) {
  Branch *branch = BranchOfPrefix(key);
  const bool fits = branch && key[strlen(branch->prefix)] != '\0' && strnlen(key, kMaxKey + 1) <= kMaxKey;
  return fits ? branch : nullptr;
}

template <class Operation> int WithKey(const char *key, const Operation &operation) {
  Branch *branch = BranchOf(key);
  if (!branch) {
    return kBadKey;
  }
  const int code = operation(*branch, MDB_val{strlen(key), const_cast<char *>(key)});
  return code == MDB_NOTFOUND ? kAbsent : code;
}

int Integer(const MDB_val &data, int *value) {
  if (data.mv_size != sizeof *value) {
    return kNotInteger;
  }
  memcpy(value, data.mv_data, sizeof *value);
  return 0;
}

int GetInteger(MDB_txn *transaction, MDB_dbi dbi, MDB_val key, int *value) {
  MDB_val data;
  const int code = mdb_get(transaction, dbi, &key, &data);
  return code == 0 ? Integer(data, value) : code;
}

// Skips values that are not integers.
int ListIntegers(MDB_txn *transaction, MDB_dbi dbi, const std::string &prefix,
                 std::vector<std::pair<std::string, int>> *entries) {
  MDB_cursor *opened = nullptr;
  int code = mdb_cursor_open(transaction, dbi, &opened);
  const std::unique_ptr<MDB_cursor, decltype(&mdb_cursor_close)> cursor(opened, mdb_cursor_close);
  MDB_val key = {prefix.size(), const_cast<char *>(prefix.data())}, data;
  bool all_are_integers = true;
  if (code == 0) {
    code = mdb_cursor_get(opened, &key, &data, MDB_SET_RANGE);
  }
  for (; code == 0; code = mdb_cursor_get(opened, &key, &data, MDB_NEXT)) {
    const std::string name(static_cast<const char *>(key.mv_data), key.mv_size);
    if (name.compare(0, prefix.size(), prefix) != 0) {
      break;
    }
    int value = 0;
    if (Integer(data, &value) == 0) {
      entries->emplace_back(name, value);
    } else {
      all_are_integers = false;
    }
  }
  if (code != 0 && code != MDB_NOTFOUND) {
    return code;
  }
  return all_are_integers ? 0 : kNotInteger;
}

std::string Reason(int code) {
  switch (code) {
  case kNotInteger:
    return "the value is not an integer";
  case kForeign:
    return "it belongs to another user";
  case MDB_MAP_FULL:
    return "the store is full";
  case MDB_READERS_FULL:
    return "too many threads read the store";
  default:
    return mdb_strerror(code);
  }
}

} // namespace

int Get(const char *key, int *value) {
  return WithKey(key, [&](Branch &branch, MDB_val name) {
    return Read(branch, [&](MDB_txn *transaction, MDB_dbi dbi) { return GetInteger(transaction, dbi, name, value); });
  });
}

int GetSettled(const char *key, int *value) {
  return WithKey(key, [&](Branch &branch, MDB_val name) {
    return branch.database.ReadSettled(
        [&](MDB_txn *transaction, MDB_dbi dbi) { return GetInteger(transaction, dbi, name, value); });
  });
}

int Set(const char *key, int value) {
  return WithKey(key, [&](Branch &branch, MDB_val name) {
    return branch.database.Write([&](MDB_txn *transaction, MDB_dbi dbi) {
      MDB_val data = {sizeof value, &value};
      const int code = mdb_put(transaction, dbi, &name, &data, 0);
      return code == 0 && !Database::LeavesRoom(transaction, dbi) ? MDB_MAP_FULL : code;
    });
  });
}

int Unset(const char *key) {
  return WithKey(key, [&](Branch &branch, MDB_val name) {
    return branch.database.Write(
        [&](MDB_txn *transaction, MDB_dbi dbi) { return mdb_del(transaction, dbi, &name, nullptr); });
  });
}

int List(const std::string &prefix, std::vector<std::pair<std::string, int>> *entries) {
  Branch *branch = BranchOfPrefix(prefix.c_str());
  if (!branch) {
    return kBadKey;
  }
  return Read(*branch,
              [&](MDB_txn *transaction, MDB_dbi dbi) { return ListIntegers(transaction, dbi, prefix, entries); });
}

int FileToWatch(const char *key, std::string *path) {
  return WithKey(key, [&](Branch &branch, MDB_val) {
    *path = branch.database.DataFile();
    return 0;
  });
}

std::string Explain(const char *key, int code) {
  switch (code) {
  case kAbsent:
    return "the key is not set";
  case kBadKey:
    return "a key begins with \"memory/\" or \"db/\", continues, and has at most " + std::to_string(kMaxKey) + " bytes";
  }
  const Branch *branch = BranchOfPrefix(key);
  return (branch ? branch->database.Directory() + ": " : "") + Reason(code);
}

void Close() { InEachDatabase<&Database::Close>(); }

} // namespace lumio::store
