// One database of the store, which LMDB calls an environment. It is opened at its first use, shared by the threads of
// the process, and closed across fork().
#pragma once

#include <lmdb.h>

#include <mutex>
#include <set>
#include <shared_mutex>
#include <string>
#include <vector>

namespace lumio::store {

class Database;

// A thread's slot in LMDB's reader table. A thread keeps its slot between reads, because taking one costs a lock that
// all processes share.
class Reader {
public:
  explicit Reader(Database &database) : database_(database) {}
  ~Reader();
  Reader(const Reader &) = delete;
  Reader &operator=(const Reader &) = delete;

private:
  friend class Database;

  Database &database_;
  MDB_txn *transaction_ = nullptr; // reset between reads; null before the first read and while the database is closed
};

struct Seed {
  const char *key;
  int value;
};

constexpr int kForeign = -100; // the directory belongs to another user

// Every function returns 0, kForeign, an LMDB code or an errno value. None writes to the log: a thread in here must not
// wait for the lock of the log, which fork() takes.
class Database {
public:
  // `directory` returns the directory of the files; it is called each time they are opened. `flags` are LMDB's. A
  // durable database acknowledges a write only once the write survives a power cut. `seeds` are keys with an initial
  // value.
  Database(std::string (*directory)(), unsigned flags, bool durable, std::vector<Seed> seeds)
      : directory_(directory), flags_(flags), durable_(durable), seeds_(std::move(seeds)) {}

  std::string Directory() const { return directory_(); }
  std::string DataFile() const { return Directory() + "/data.mdb"; }

  // Runs body(MDB_txn *, MDB_dbi) on the newest committed state. Never waits for a writer.
  template <class Body> int Read(Reader &reader, const Body &body);

  // Does the same under the writers' lock. It also sees a commit that has written to the data file, which a watcher can
  // notice, but that LMDB has not published yet, whether its writer is still running or has died.
  template <class Body> int ReadSettled(const Body &body);

  // Commits if body(MDB_txn *, MDB_dbi) returns 0.
  template <class Body> int Write(const Body &body);

  // Returns whether the keys and values leave enough room. They may take half of the map: every commit, even one that
  // deletes a key, writes new pages before it frees the old ones.
  static bool LeavesRoom(MDB_txn *transaction, MDB_dbi dbi);

  // Closes the database until its next use. Waits for the threads that are inside.
  void Close();

  // Called around fork(): LMDB forbids a child to use what its parent has opened, and the child must not inherit the
  // database in the middle of another thread's work.
  void BeforeFork() { ShutGate(); }
  void AfterForkInParent() { gate_.unlock(); }
  void AfterForkInChild();

private:
  friend class Reader;

  // Keeps the database open.
  using Inside = std::shared_lock<std::shared_mutex>;

  Inside Enter(int *code, Reader *reader = nullptr);
  void ShutGate();
  int Open();
  int OpenFiles(const std::string &directory);
  int PlantSeeds();
  int BeginRead(Reader &reader);
  int EndWrite(MDB_txn *transaction, int code);
  bool Mend(int code);

  // Runs the body in a transaction that excludes all other writers, then end(MDB_txn *, result of the body).
  template <class Body, class End> int Exclude(const Body &body, const End &end);

  // Runs `attempt`, and once more if it fails for a reason that can be mended.
  template <class Attempt> int Mending(const Attempt &attempt) {
    const int code = attempt();
    return Mend(code) ? attempt() : code;
  }

  std::string (*const directory_)();
  const unsigned flags_;
  const bool durable_;
  const std::vector<Seed> seeds_;

  std::mutex gate_;          // every thread passes it on its way in; whoever holds it keeps the others out
  std::shared_mutex inside_; // shared by the threads inside; taken exclusively only to wait until they have left
  MDB_env *env_ = nullptr;   // null while closed; changes only while the gate is shut
  MDB_dbi dbi_ = 0;
  std::set<Reader *> readers_; // those with a transaction; guarded by gate_
};

template <class Body> int Database::Read(Reader &reader, const Body &body) {
  return Mending([&] {
    int code = 0;
    const Inside inside = Enter(&code, &reader);
    if (code == 0) {
      code = BeginRead(reader);
    }
    if (code == 0) {
      struct Reset {
        MDB_txn *transaction;
        ~Reset() { mdb_txn_reset(transaction); }
      } reset{reader.transaction_};
      code = body(reader.transaction_, dbi_);
    }
    return code;
  });
}

template <class Body, class End> int Database::Exclude(const Body &body, const End &end) {
  return Mending([&] {
    int code = 0;
    const Inside inside = Enter(&code);
    MDB_txn *transaction = nullptr;
    if (code == 0) {
      code = mdb_txn_begin(env_, nullptr, 0, &transaction);
    }
    return code == 0 ? end(transaction, body(transaction, dbi_)) : code;
  });
}

template <class Body> int Database::ReadSettled(const Body &body) {
  return Exclude(body, [](MDB_txn *transaction, int code) {
    mdb_txn_abort(transaction);
    return code;
  });
}

template <class Body> int Database::Write(const Body &body) {
  return Exclude(body, [this](MDB_txn *transaction, int code) { return EndWrite(transaction, code); });
}

} // namespace lumio::store
