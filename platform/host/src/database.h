// One LMDB database of this process: opened when it is first used, shared by its threads, closed across fork().
#pragma once

#include <lmdb.h>

#include <mutex>
#include <set>
#include <shared_mutex>
#include <string>
#include <vector>

namespace lumio::store {

class Database;

// A thread's place in the table of readers, kept between its reads because taking one costs a lock shared by all
// processes.
class Reader {
public:
  explicit Reader(Database &database) : database_(database) {}
  ~Reader();
  Reader(const Reader &) = delete;
  Reader &operator=(const Reader &) = delete;

private:
  friend class Database;

  Database &database_;
  MDB_txn *transaction_ = nullptr; // reset between reads; null until the first one and when the database was closed
};

struct Seed {
  const char *key;
  int value;
};

constexpr int kForeign = -100; // the directory belongs to another user

// Every operation answers 0, kForeign, an LMDB code or an errno value. None of them writes to the log, so that a thread
// in here never waits for the log, whatever locks a fork() has taken.
class Database {
public:
  // `directory` tells where the files are whenever they are opened; `flags` are LMDB's. A durable database
  // acknowledges a write only when it would outlive a power cut. `seeds` are the keys that get a first value.
  Database(std::string (*directory)(), unsigned flags, bool durable, std::vector<Seed> seeds)
      : directory_(directory), flags_(flags), durable_(durable), seeds_(std::move(seeds)) {}

  std::string Directory() const { return directory_(); }
  std::string DataFile() const { return Directory() + "/data.mdb"; }

  // body(MDB_txn *, MDB_dbi) sees the newest state that a commit has announced. Never waits for a writer.
  template <class Body> int Read(Reader &reader, const Body &body);

  // The same behind the writers' lock: sees also the commit whose data file write has already been noticed but that is
  // not announced yet, be its writer still at it or dead.
  template <class Body> int ReadSettled(const Body &body);

  // Commits when body(MDB_txn *, MDB_dbi) answers 0.
  template <class Body> int Write(const Body &body);

  // Whether the keys and values leave room. They may take half of the space: every commit writes its pages anew, also
  // one that deletes a key, before it can give up the old ones.
  static bool LeavesRoom(MDB_txn *transaction, MDB_dbi dbi);

  // Closes until the next use. Waits for the threads that are inside.
  void Close();

  // Around fork(): LMDB forbids the child the use of what the parent opened, and an database cannot be taken over
  // in the middle of another thread's work.
  void BeforeFork() { ShutGate(); }
  void AfterForkInParent() { gate_.unlock(); }
  void AfterForkInChild();

private:
  friend class Reader;

  // Being inside keeps the database open.
  using Inside = std::shared_lock<std::shared_mutex>;

  Inside Enter(int *code, Reader *reader = nullptr);
  void ShutGate();
  int Open();
  int OpenFiles(const std::string &directory);
  int PlantSeeds();
  int BeginRead(Reader &reader);
  int EndWrite(MDB_txn *transaction, int code);
  bool Mend(int code);

  // Runs the body in a transaction that excludes all other writers, and end(MDB_txn *, what the body answered).
  template <class Body, class End> int Exclude(const Body &body, const End &end);

  // Tries once more what failed for a reason that could be mended.
  template <class Attempt> int Mending(const Attempt &attempt) {
    const int code = attempt();
    return Mend(code) ? attempt() : code;
  }

  std::string (*const directory_)();
  const unsigned flags_;
  const bool durable_;
  const std::vector<Seed> seeds_;

  std::mutex gate_;          // passed on the way in; held, it keeps everybody out
  std::shared_mutex inside_; // held shared by those who are inside, exclusively only to wait until they have left
  MDB_env *env_ = nullptr;   // null while closed; changed behind the shut gate
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
