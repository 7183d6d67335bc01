// What vconf keeps, among several processes and after any of them is killed.
#include <vconf.h>

#include "fake_io.h"
#include "fake_memory.h"
#include "fork.h"
#include "stderr_of.h"
#include "store.h"
#include "stored.h"
#include "temporary_directory.h"

#include <gmock/gmock.h>
#include <lmdb.h>

#include <fcntl.h>
#include <pwd.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <deque>
#include <fstream>
#include <list>
#include <optional>
#include <random>
#include <thread>
#include <vector>

namespace store = lumio::store;

using testing::AllOf;
using testing::Ge;
using testing::HasSubstr;
using testing::Le;

namespace {

constexpr const char *kAging = "db/FactoryApp/Aging";

class Store : public testing::Test {
protected:
  Store() { setenv("LUMIO_VCONF_DIR", (directory_ / "store").c_str(), 1); }
  ~Store() override { store::Close(); }

  void StartAfresh() {
    store::Close();
    std::filesystem::remove_all(directory_ / "store");
  }

  const lumio::TemporaryDirectory directory_;
};

// Runs with the keys in "db/" and with those in "memory/".
class EachStore : public Store, public testing::WithParamInterface<const char *> {
protected:
  std::string Key(const std::string &name) const { return std::string(GetParam()) + "/" + name; }
  std::string Files() const { return directory_ / ("store/" + std::string(GetParam())); }
};

INSTANTIATE_TEST_SUITE_P(, EachStore, testing::Values("db", "memory"), [](const auto &test) { return test.param; });

TEST_P(EachStore, KeepsAValue) {
  EXPECT_EQ(Value(Key("a")), std::nullopt);
  for (const int value : {0, 1, -1, INT_MAX, INT_MIN}) {
    EXPECT_EQ(vconf_set_int(Key("a").c_str(), value), 0);
    EXPECT_EQ(Value(Key("a")), value);
  }
  store::Close();
  EXPECT_EQ(Value(Key("a")), INT_MIN);
}

TEST_P(EachStore, KeepsKeysApart) {
  EXPECT_EQ(vconf_set_int(Key("a").c_str(), 1), 0);
  EXPECT_EQ(vconf_set_int(Key("a/b").c_str(), 2), 0);
  EXPECT_EQ(store::Unset(Key("a").c_str()), 0);
  EXPECT_EQ(Value(Key("a")), std::nullopt);
  EXPECT_EQ(Value(Key("a/b")), 2);
  EXPECT_EQ(store::Unset(Key("a").c_str()), store::kAbsent);
}

TEST_F(Store, AnAbsentKeyLeavesTheValueAndTheLogAlone) {
  int value = 17;
  EXPECT_EQ(StderrOf([&] { EXPECT_LT(vconf_get_int(kAging, &value), 0); }), "");
  EXPECT_EQ(value, 17);
}

TEST_F(Store, GivesKnownKeysTheirInitialValue) {
  EXPECT_EQ(Value(kBanners), 0);
  EXPECT_EQ(Value(kAging), std::nullopt);
}

TEST_F(Store, NeverOverwritesTheValueOfAKnownKey) {
  EXPECT_EQ(vconf_set_int(kBanners, 5), 0);
  store::Close();
  EXPECT_EQ(Value(kBanners), 5);
}

TEST_F(Store, AKnownKeyThatWasUnsetStaysAbsentUntilTheStoreIsOpenedAgain) {
  EXPECT_EQ(vconf_set_int(kBanners, 5), 0);
  EXPECT_EQ(store::Unset(kBanners), 0);
  EXPECT_EQ(Value(kBanners), std::nullopt);
  store::Close();
  EXPECT_EQ(Value(kBanners), 0);
}

TEST_F(Store, RefusesInvalidKeys) {
  const std::string longest = "db/" + std::string(508, 'x');
  EXPECT_EQ(vconf_set_int(longest.c_str(), 3), 0);
  EXPECT_EQ(Value(longest), 3);
  const std::string too_long = longest + "x";
  for (const char *key : {static_cast<const char *>(nullptr), "", "db/", "memory/", "db", "other/a", "/db/a",
                          "Memory/a", too_long.c_str()}) {
    int value = 17;
    const std::string refusal = std::string(key ? key : "(null)") +
                                ": a key begins with \"memory/\" or \"db/\", continues, and has at most 511 bytes\n";
    EXPECT_THAT(StderrOf([&] { EXPECT_LT(vconf_get_int(key, &value), 0); }), HasSubstr("cannot get " + refusal));
    EXPECT_THAT(StderrOf([&] { EXPECT_LT(vconf_set_int(key, 1), 0); }), HasSubstr("cannot set " + refusal));
    EXPECT_EQ(value, 17);
  }
}

TEST_F(Store, RefusesANullValuePointer) {
  EXPECT_THAT(StderrOf([&] { EXPECT_LT(vconf_get_int(kBanners, nullptr), 0); }),
              HasSubstr("E vconf: cannot get memory/lumio/lumio_banner_state_1: "));
}

TEST_F(Store, ListsKeysWithAPrefixInOrder) {
  using Entries = std::vector<std::pair<std::string, int>>;
  for (const char *key : {"db/b", "db/a/2", "db/a/1", "db/c"}) {
    EXPECT_EQ(vconf_set_int(key, key[3]), 0);
  }
  Entries entries;
  EXPECT_EQ(store::List("db/a", &entries), 0);
  EXPECT_EQ(entries, (Entries{{"db/a/1", 'a'}, {"db/a/2", 'a'}}));
  EXPECT_EQ(store::List("memory/", &entries), 0);
  EXPECT_EQ(entries.back(), Entries::value_type(kBanners, 0));
  EXPECT_EQ(store::List("db/zzz", &entries), 0);
  EXPECT_EQ(entries.size(), 3u);
  EXPECT_EQ(store::List("other/", &entries), store::kBadKey);
}

// Where the files are.

TEST_F(Store, MakesPrivateDirectories) {
  EXPECT_EQ(vconf_set_int("db/a", 1), 0);
  for (const char *name : {"store", "store/db", "store/db/data.mdb", "store/db/lock.mdb"}) {
    struct stat status;
    ASSERT_EQ(stat((directory_ / name).c_str(), &status), 0) << name;
    EXPECT_EQ(status.st_mode & 077, 0u) << name;
  }
}

std::string FileOf(const char *key) {
  std::string path;
  EXPECT_EQ(store::FileToWatch(key, &path), 0);
  return path;
}

TEST_F(Store, KeepsItsFilesInTheUsersDirectories) {
  unsetenv("LUMIO_VCONF_DIR");
  setenv("XDG_RUNTIME_DIR", "/run/me", 1);
  setenv("XDG_DATA_HOME", "/data/me", 1);
  EXPECT_EQ(FileOf("memory/a"), "/run/me/lumio/memory/data.mdb");
  EXPECT_EQ(FileOf("db/a"), "/data/me/lumio/db/data.mdb");
}

TEST_F(Store, FallsBackWithoutTheUsersDirectories) {
  setenv("LUMIO_VCONF_DIR", "", 1);
  setenv("XDG_RUNTIME_DIR", "relative", 1);
  setenv("XDG_DATA_HOME", "", 1);
  setenv("HOME", "/home/me", 1);
  EXPECT_EQ(FileOf("memory/a"), "/dev/shm/lumio-memory-" + std::to_string(geteuid()) + "/data.mdb");
  EXPECT_EQ(FileOf("db/a"), "/home/me/.local/share/lumio/db/data.mdb");
  unsetenv("HOME");
  const passwd *user = getpwuid(geteuid());
  EXPECT_EQ(FileOf("db/a"), (user ? std::string(user->pw_dir) : "") + "/.local/share/lumio/db/data.mdb");
}

TEST_P(EachStore, ReportsAnUnusableDirectoryAndTriesAgain) {
  std::ofstream(directory_ / "store") << "not a directory";
  int value = 17;
  EXPECT_THAT(StderrOf([&] { EXPECT_LT(vconf_set_int(Key("a").c_str(), 1), 0); }),
              HasSubstr("cannot set " + Key("a") + ": " + Files() + ": Not a directory\n"));
  EXPECT_THAT(StderrOf([&] { EXPECT_LT(vconf_get_int(Key("a").c_str(), &value), 0); }),
              HasSubstr("cannot get " + Key("a") + ": " + Files() + ": Not a directory\n"));
  EXPECT_EQ(value, 17);
  std::filesystem::remove(directory_ / "store");
  EXPECT_EQ(vconf_set_int(Key("a").c_str(), 1), 0);
  EXPECT_EQ(Value(Key("a")), 1);
}

// Lasts for the rest of the process, which leaves the directory to that user.
void BecomeAnOrdinaryUser(const std::string &directory) {
  constexpr uid_t kNobody = 65534;
  if (geteuid() == 0) {
    ASSERT_EQ(chown(directory.c_str(), kNobody, kNobody), 0);
    ASSERT_EQ(setegid(kNobody), 0);
    ASSERT_EQ(seteuid(kNobody), 0);
  }
}

TEST_P(EachStore, ReportsAnUnwritableDirectoryAndLosesNothing) {
  Fork child([&] {
    const std::string directory = directory_ / "", data = Files() + "/data.mdb";
    const auto expect_told = [&] {
      EXPECT_THAT(StderrOf([&] { EXPECT_LT(vconf_set_int(Key("a").c_str(), 9), 0); }),
                  HasSubstr("cannot set " + Key("a") + ": " + Files() + ": Permission denied\n"));
      EXPECT_THAT(StderrOf([&] { EXPECT_EQ(Value(Key("a")), std::nullopt); }),
                  HasSubstr("cannot get " + Key("a") + ": " + Files() + ": Permission denied\n"));
    };
    ASSERT_NO_FATAL_FAILURE(BecomeAnOrdinaryUser(directory));
    ASSERT_EQ(chmod(directory.c_str(), 0500), 0);
    expect_told();
    ASSERT_EQ(chmod(directory.c_str(), 0700), 0);
    EXPECT_EQ(vconf_set_int(Key("a").c_str(), 1), 0);
    ASSERT_EQ(chmod(data.c_str(), 0400), 0);
    ASSERT_EQ(chmod(Files().c_str(), 0500), 0);
    EXPECT_EQ(vconf_set_int(Key("a").c_str(), 2), 0); // what is open stays in use
    EXPECT_EQ(Value(Key("a")), 2);
    store::Close();
    expect_told();
    ASSERT_EQ(chmod(data.c_str(), 0600), 0);
    EXPECT_EQ(Value(Key("a")), 2);
    EXPECT_EQ(chmod(Files().c_str(), 0700), 0); // so that it can be removed
  });
  EXPECT_TRUE(child.Succeeds());
}

TEST_P(EachStore, RefusesADirectoryOfAnotherUser) {
  std::filesystem::create_directories(directory_ / "store");
  if (geteuid() == 0) {
    std::filesystem::create_directory(Files());
    ASSERT_EQ(chown(Files().c_str(), 65534, 65534), 0);
  } else {
    std::filesystem::create_symlink("/usr", Files());
  }
  EXPECT_THAT(StderrOf([&] { EXPECT_LT(vconf_set_int(Key("a").c_str(), 1), 0); }),
              HasSubstr("cannot set " + Key("a") + ": " + Files() + ": it belongs to another user\n"));
}

// Otherwise the program would print into the files.
TEST_P(EachStore, ItsFilesNeverTakeThePlaceOfStandardStreams) {
  EXPECT_EQ(vconf_set_int(Key("a").c_str(), 1), 0);
  Fork child([&] {
    const int output = fcntl(STDOUT_FILENO, F_DUPFD, 10), errors = fcntl(STDERR_FILENO, F_DUPFD, 10);
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      close(stream);
    }
    const std::optional<int> old = Value(Key("a"));
    const int code = vconf_set_int(Key("a").c_str(), 2);
    int taken = 0;
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
      taken += fcntl(stream, F_GETFD) < 0 ? 0 : 1;
    }
    dup2(output, STDOUT_FILENO);
    dup2(errors, STDERR_FILENO);
    EXPECT_EQ(old, 1);
    EXPECT_EQ(code, 0);
    EXPECT_EQ(taken, 0);
  });
  EXPECT_TRUE(child.Succeeds());
  EXPECT_EQ(Value(Key("a")), 2);
}

TEST_P(EachStore, RefusesAFileThatIsNotAStore) {
  std::filesystem::create_directories(Files());
  std::ofstream(Files() + "/data.mdb") << std::string(10000, 'x');
  EXPECT_THAT(StderrOf([&] { EXPECT_LT(vconf_set_int(Key("a").c_str(), 1), 0); }),
              HasSubstr(Files() + ": MDB_INVALID"));
  std::filesystem::remove(Files() + "/data.mdb");
  EXPECT_EQ(vconf_set_int(Key("a").c_str(), 1), 0);
}

TEST_P(EachStore, OpensAStoreWhoseCreatorWasKilled) {
  std::filesystem::create_directories(Files());
  std::ofstream(Files() + "/data.mdb.new") << std::string(4096, 'x');
  std::ofstream(Files() + "/lock.mdb.new") << "half";
  EXPECT_EQ(vconf_set_int(Key("a").c_str(), 1), 0);
  EXPECT_FALSE(std::filesystem::exists(Files() + "/data.mdb.new"));
  EXPECT_FALSE(std::filesystem::exists(Files() + "/lock.mdb.new"));
}

// Each acknowledged write survives a power cut that follows it.
TEST_F(Store, AcknowledgesAWriteToDbWhenItIsOnTheDisk) {
  const auto expect_synced = [&] {
    for (const char *name : {"", "store", "store/db", "store/db/data.mdb"}) {
      EXPECT_TRUE(IsSynced(directory_ / name)) << name;
    }
  };
  EXPECT_EQ(vconf_set_int("db/a", 1), 0);
  expect_synced();
  EXPECT_EQ(vconf_set_int("db/a", 2), 0);
  expect_synced();
  EXPECT_EQ(store::Unset("db/a"), 0);
  expect_synced();
  store::Close();
  EXPECT_EQ(vconf_set_int("db/a", 3), 0);
  expect_synced();
}

TEST_F(Store, DoesNotSyncKeysThatEndWithTheSession) {
  EXPECT_EQ(vconf_set_int("memory/a", 1), 0);
  EXPECT_FALSE(IsSynced(directory_ / "store/memory/data.mdb"));
}

// A full store.

// Sets keys of the maximum length until one is refused, and returns how many were accepted.
int Fill(const std::string &prefix, std::string *log) {
  int count = 0;
  const auto next = [&] {
    std::string key = prefix + std::to_string(count) + "/";
    return key + std::string(511 - key.size(), 'x');
  };
  *log = StderrOf([&] {
    while (vconf_set_int(next().c_str(), count) == 0) {
      ++count;
    }
  });
  return count;
}

TEST_F(Store, AFullStoreRefusesNewKeysAndKeepsTheOldOnes) {
  EXPECT_EQ(vconf_set_int("memory/old", 1), 0);
  std::string log;
  const int taken = Fill("memory/fill", &log);
  EXPECT_GT(taken, 5000);
  EXPECT_THAT(log, HasSubstr(": the store is full\n"));
  std::vector<std::pair<std::string, int>> entries;
  EXPECT_EQ(store::List("memory/fill", &entries), 0);
  EXPECT_EQ(entries.size(), static_cast<size_t>(taken));
  EXPECT_EQ(Value("memory/old"), 1);
  for (int value = 2; value < 100; ++value) {
    EXPECT_EQ(vconf_set_int("memory/old", value), 0);
  }
  EXPECT_EQ(Value("memory/old"), 99);
  for (size_t i = 0; i < 100; ++i) {
    EXPECT_EQ(store::Unset(entries[i].first.c_str()), 0);
  }
  EXPECT_EQ(vconf_set_int(entries[0].first.c_str(), 1), 0);
  EXPECT_EQ(Value(entries[0].first), 1);
}

// A full disk: no file may grow.
TEST_P(EachStore, AFullDiskRefusesWritesAndKeepsTheOldValues) {
  EXPECT_EQ(vconf_set_int(Key("old").c_str(), 1), 0);
  Fork child([&] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit no_growth = {std::filesystem::file_size(Files() + "/data.mdb"), RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &no_growth), 0);
    int count = 0;
    while (vconf_set_int(Key("new" + std::to_string(count)).c_str(), count) == 0) {
      ++count;
    }
    for (int i = 0; i < count; ++i) {
      EXPECT_EQ(Value(Key("new" + std::to_string(i))), i);
    }
    EXPECT_EQ(Value(Key("new" + std::to_string(count))), std::nullopt);
    EXPECT_EQ(Value(Key("old")), 1);
    const rlimit room = {RLIM_INFINITY, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &room), 0);
    EXPECT_EQ(vconf_set_int(Key("new").c_str(), 7), 0);
  });
  EXPECT_TRUE(child.Succeeds());
  EXPECT_EQ(Value(Key("old")), 1);
  EXPECT_EQ(Value(Key("new")), 7);
}

TEST_P(EachStore, AFullDiskRefusesANewStore) {
  Fork child([&] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit little = {4096, RLIM_INFINITY};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &little), 0);
    EXPECT_LT(vconf_set_int(Key("a").c_str(), 1), 0);
    EXPECT_EQ(Value(Key("a")), std::nullopt);
  });
  EXPECT_TRUE(child.Succeeds());
  EXPECT_EQ(vconf_set_int(Key("a").c_str(), 1), 0);
}

// What a test knows about one key: the last acknowledged value, and the values tried since then.
class Expected {
public:
  void Tried(int value, bool acknowledged) {
    if (acknowledged) {
      possible_.clear();
    }
    possible_.push_back(value);
  }
  void Check(const std::optional<int> &value) const { EXPECT_THAT(possible_, testing::Contains(value)); }

private:
  std::vector<std::optional<int>> possible_ = {std::nullopt};
};

// Opens a new store, uses it, and opens it again. Each result must be the one expected without failures, or a failure.
void UseThrough(const std::string &key, Expected *expected) {
  for (int value = 1; value <= 6; ++value) {
    if (value == 4) {
      store::Close();
    }
    expected->Tried(value, vconf_set_int(key.c_str(), value) == 0);
    const std::optional<int> read = Value(key);
    if (read) {
      expected->Check(read);
    }
  }
}

class EachFailure : public EachStore {
protected:
  void FailEachCall(int error, bool for_good) {
    bool failed = true;
    for (int nth = 1; failed; ++nth) {
      SCOPED_TRACE("call " + std::to_string(nth));
      StartAfresh();
      Expected expected;
      FailIo(nth, error, for_good);
      UseThrough(Key("a"), &expected);
      failed = IoMade() >= nth;
      FailIo(0);
      expected.Check(Value(Key("a")));
      EXPECT_EQ(vconf_set_int(Key("a").c_str(), 100), 0);
      EXPECT_EQ(Value(Key("a")), 100);
      store::Close();
      EXPECT_EQ(Value(Key("a")), 100);
    }
  }
};

INSTANTIATE_TEST_SUITE_P(, EachFailure, testing::Values("db", "memory"), [](const auto &test) { return test.param; });

TEST_P(EachFailure, OfOneCallLosesNothingAcknowledged) { FailEachCall(EIO, false); }
TEST_P(EachFailure, OfAllCallsFromOneOnLosesNothingAcknowledged) { FailEachCall(ENOSPC, true); }

// Each round runs on a new thread, which has no slot in the reader table yet.
TEST_P(EachFailure, OfAnAllocationLosesNothingAcknowledged) {
  bool failed = true;
  for (int nth = 1; failed; ++nth) {
    SCOPED_TRACE("allocation " + std::to_string(nth));
    StartAfresh();
    Expected expected;
    std::thread([&] {
      const std::string key = Key("a");
      FailAllocation(nth);
      const bool set = vconf_set_int(key.c_str(), 1) == 0;
      int value = 1;
      const bool got = vconf_get_int(key.c_str(), &value) == 0;
      failed = AllocationsMade() >= nth;
      FailAllocation(0);
      expected.Tried(1, set);
      EXPECT_EQ(value, 1);
      EXPECT_TRUE(got || failed);
    }).join();
    expected.Check(Value(Key("a")));
    EXPECT_EQ(vconf_set_int(Key("a").c_str(), 2), 0);
    EXPECT_EQ(Value(Key("a")), 2);
  }
}

// Several processes and threads.

constexpr int kThreadFactor = 1000;

// Two threads each write a key of their own and a key that all share.
void WriteInThreads(int process, int rounds, const std::string &prefix) {
  const auto write = [&](int writer) {
    const std::string own = prefix + std::to_string(writer), shared = prefix + "shared";
    for (int round = 1; round <= rounds; ++round) {
      EXPECT_EQ(vconf_set_int(own.c_str(), round), 0);
      EXPECT_EQ(vconf_set_int(shared.c_str(), writer * kThreadFactor + round), 0);
      EXPECT_EQ(Value(own), round);
    }
  };
  std::thread other(write, 2 * process);
  write(2 * process + 1);
  other.join();
}

TEST_P(EachStore, KeepsWhatManyWritersWrote) {
  constexpr int kProcesses = 4, kRounds = 20;
  InProcesses(kProcesses, [&](int process) { WriteInThreads(process, kRounds, Key("")); });
  for (int writer = 0; writer < 2 * kProcesses; ++writer) {
    EXPECT_EQ(Value(Key(std::to_string(writer))), kRounds);
  }
  // The last write to the shared key is the last one of its writer.
  EXPECT_EQ(Value(Key("shared")).value_or(0) % kThreadFactor, kRounds);
}

// LMDB alone fails, or prepares its lock file twice, if processes open and close it at the same time.
TEST_P(EachStore, CanBeOpenedAndClosedByManyAtOnce) {
  for (int round = 0; round < 5; ++round) {
    StartAfresh();
    InProcesses(4, [&](int process) {
      const std::string key = Key(std::to_string(process));
      for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(vconf_set_int(key.c_str(), i), 0);
        store::Close();
        EXPECT_EQ(Value(key), i);
      }
    });
  }
}

TEST_F(Store, TheInitialValueNeverReplacesAnotherOne) {
  for (int round = 0; round < 20; ++round) {
    StartAfresh();
    Fork opener([] { EXPECT_THAT(Value(kBanners).value_or(-1), testing::AnyOf(0, 7)); });
    Fork setter([] { EXPECT_EQ(vconf_set_int(kBanners, 7), 0); });
    EXPECT_TRUE(opener.Succeeds());
    EXPECT_TRUE(setter.Succeeds());
    EXPECT_EQ(Value(kBanners), 7);
  }
}

TEST_P(EachStore, AReaderSeesTheValuesOfEachProcessInOrder) {
  constexpr int kLast = 200;
  EXPECT_EQ(vconf_set_int(Key("a").c_str(), 0), 0);
  Fork writer([&] {
    for (int value = 1; value <= kLast; ++value) {
      EXPECT_EQ(vconf_set_int(Key("a").c_str(), value), 0);
    }
  });
  for (int before = 0, now = 0; now < kLast; before = now) {
    now = Value(Key("a")).value_or(-1);
    ASSERT_GE(now, before);
  }
  EXPECT_TRUE(writer.Succeeds());
}

// Killed processes.

// Sets the key to 1, 2, ... and sends each acknowledged value.
void Count(const std::string &key, Pipe *acknowledged, int last) {
  for (int value = 1; value <= last; ++value) {
    if (vconf_set_int(key.c_str(), value) == 0) {
      acknowledged->Send(value);
    }
  }
}

TEST_P(EachStore, AKilledWriterLosesNothingAcknowledged) {
  std::mt19937 random(1);
  for (int round = 0; round < 20; ++round) {
    Pipe acknowledged;
    Fork writer([&] { Count(Key("a"), &acknowledged, INT_MAX); });
    acknowledged.CloseSender();
    int last = 0;
    for (unsigned after = 1 + random() % 30; after > 0; --after) {
      ASSERT_TRUE(acknowledged.Receive(&last));
    }
    writer.Kill();
    while (acknowledged.Receive(&last)) {
    }
    EXPECT_THAT(Value(Key("a")).value_or(0), AllOf(Ge(last), Le(last + 1)));
    EXPECT_EQ(vconf_set_int(Key("b").c_str(), round), 0);
    EXPECT_EQ(Value(Key("b")), round);
  }
}

class AtEachCall : public EachStore {
protected:
  // Kills a writer at its first, second, ... system call until a writer finishes.
  void KillAWriter(bool is_open) {
    bool killed = true;
    for (int nth = 1; killed; ++nth) {
      SCOPED_TRACE("call " + std::to_string(nth));
      StartAfresh();
      if (is_open) {
        EXPECT_EQ(Value(Key("a")), std::nullopt);
      }
      Pipe acknowledged;
      Fork writer([&] {
        DieAtIo(nth);
        Count(Key("a"), &acknowledged, 3);
      });
      acknowledged.CloseSender();
      int last = 0;
      while (acknowledged.Receive(&last)) {
      }
      killed = !writer.Succeeds();
      EXPECT_THAT(Value(Key("a")).value_or(0), AllOf(Ge(last), Le(last + 1)));
      EXPECT_EQ(vconf_set_int(Key("a").c_str(), 100), 0);
      EXPECT_EQ(Value(Key("a")), 100);
      EXPECT_EQ(killed, last < 3);
    }
  }
};

INSTANTIATE_TEST_SUITE_P(, AtEachCall, testing::Values("db", "memory"), [](const auto &test) { return test.param; });

TEST_P(AtEachCall, AKilledCreatorLosesNothingAcknowledged) { KillAWriter(false); }
TEST_P(AtEachCall, AKilledWriterLosesNothingAcknowledged) { KillAWriter(true); }

// A process that uses the same files through LMDB directly, and so can stop where the store never stops.
class Intruder {
public:
  explicit Intruder(const std::string &files) {
    EXPECT_EQ(mdb_env_create(&env_), 0);
    EXPECT_EQ(mdb_env_open(env_, files.c_str(), MDB_NOTLS, 0600), 0);
  }
  ~Intruder() { mdb_env_close(env_); }
  Intruder(const Intruder &) = delete;
  Intruder &operator=(const Intruder &) = delete;

  int Begin(unsigned flags) {
    MDB_txn *transaction = nullptr;
    return mdb_txn_begin(env_, nullptr, flags, &transaction);
  }

  void TakeAllReaders() {
    int code = 0;
    while (code == 0) {
      code = Begin(MDB_RDONLY);
    }
    EXPECT_EQ(code, MDB_READERS_FULL);
  }

  void Put(const std::string &key, const std::string &value) {
    MDB_txn *transaction = nullptr;
    MDB_dbi dbi;
    MDB_val name = {key.size(), const_cast<char *>(key.data())};
    MDB_val data = {value.size(), const_cast<char *>(value.data())};
    EXPECT_EQ(mdb_txn_begin(env_, nullptr, 0, &transaction), 0);
    EXPECT_EQ(mdb_dbi_open(transaction, nullptr, 0, &dbi), 0);
    EXPECT_EQ(mdb_put(transaction, dbi, &name, &data, 0), 0);
    EXPECT_EQ(mdb_txn_commit(transaction), 0);
  }

private:
  MDB_env *env_ = nullptr;
};

// Stays in the middle of what `act` has begun until the process is killed.
class StuckIntruder {
public:
  StuckIntruder(const std::string &files, const std::function<void(Intruder &)> &act)
      : child_([&] {
          Intruder intruder(files);
          act(intruder);
          ready_.Send(1);
          pause();
        }) {
    ready_.CloseSender();
    int one = 0;
    EXPECT_TRUE(ready_.Receive(&one));
  }
  void Kill() { child_.Kill(); }

private:
  Pipe ready_;
  Fork child_;
};

TEST_P(EachStore, AWriterKilledInATransactionBlocksNobody) {
  EXPECT_EQ(vconf_set_int(Key("a").c_str(), 1), 0);
  StuckIntruder writer(Files(), [](Intruder &intruder) { EXPECT_EQ(intruder.Begin(0), 0); });
  EXPECT_EQ(Value(Key("a")), 1);
  writer.Kill();
  EXPECT_EQ(vconf_set_int(Key("a").c_str(), 2), 0);
  EXPECT_EQ(Value(Key("a")), 2);
}

TEST_P(EachStore, ReusesTheSlotsOfKilledReaders) {
  EXPECT_EQ(vconf_set_int(Key("a").c_str(), 1), 0);
  StuckIntruder reader(Files(), [](Intruder &intruder) { intruder.TakeAllReaders(); });
  EXPECT_THAT(StderrOf([&] { EXPECT_EQ(Value(Key("a")), std::nullopt); }),
              HasSubstr(": too many threads read the store\n"));
  EXPECT_EQ(vconf_set_int(Key("a").c_str(), 2), 0);
  reader.Kill();
  EXPECT_EQ(Value(Key("a")), 2);
}

TEST_F(Store, ReusesThePagesOfAKilledReader) {
  EXPECT_EQ(vconf_set_int("memory/a", 0), 0);
  StuckIntruder reader(directory_ / "store/memory",
                       [](Intruder &intruder) { EXPECT_EQ(intruder.Begin(MDB_RDONLY), 0); });
  // A living reader keeps the pages that it sees from being reused, until no page is left.
  int value = 0;
  EXPECT_THAT(StderrOf([&] {
                while (vconf_set_int("memory/a", value + 1) == 0) {
                  ++value;
                }
              }),
              HasSubstr("cannot set memory/a: " + (directory_ / "store/memory") + ": the store is full\n"));
  EXPECT_EQ(Value("memory/a"), value);
  reader.Kill();
  for (int more = 1; more <= 100; ++more) {
    EXPECT_EQ(vconf_set_int("memory/a", value + more), 0);
  }
  EXPECT_EQ(Value("memory/a"), value + 100);
}

// Receives `count` acknowledgements and returns the last one.
int ReceiveSome(Pipe *acknowledged, unsigned count) {
  int last = 0;
  for (; count > 0; --count) {
    EXPECT_TRUE(acknowledged->Receive(&last));
  }
  return last;
}

TEST_P(EachStore, WritersAndReadersKilledAmongOthersLoseNothingAcknowledged) {
  constexpr size_t kWriters = 3;
  constexpr int kMost = 200; // which do not fill the store while the reader holds on to every page
  std::mt19937 random(1);
  for (int round = 0; round < 10; ++round) {
    StartAfresh();
    EXPECT_EQ(vconf_set_int(Key("mine").c_str(), round), 0);
    StuckIntruder reader(Files(), [](Intruder &intruder) { EXPECT_EQ(intruder.Begin(MDB_RDONLY), 0); });
    std::deque<Pipe> pipes;
    std::deque<Fork> writers;
    for (size_t i = 0; i < kWriters; ++i) {
      Pipe *acknowledged = &pipes.emplace_back();
      writers.emplace_back([&, i] { Count(Key(std::to_string(i)), acknowledged, kMost); });
      acknowledged->CloseSender();
    }
    std::vector<int> last(kWriters);
    for (size_t killed = 0; killed < kWriters; ++killed) {
      for (size_t i = killed; i < kWriters; ++i) { // those that are left go on
        last[i] = ReceiveSome(&pipes[i], 1 + random() % 20);
      }
      writers[killed].Kill();
      reader.Kill();
      while (pipes[killed].Receive(&last[killed])) {
      }
    }
    for (size_t i = 0; i < kWriters; ++i) {
      EXPECT_THAT(Value(Key(std::to_string(i))).value_or(0), AllOf(Ge(last[i]), Le(last[i] + 1)));
    }
    EXPECT_EQ(Value(Key("mine")), round);
  }
}

TEST_P(EachStore, ToleratesValuesThatAreNotIntegers) {
  EXPECT_EQ(vconf_set_int(Key("b").c_str(), 1), 0);
  Fork child([&] { Intruder(Files()).Put(Key("a"), "text"); });
  EXPECT_TRUE(child.Succeeds());
  EXPECT_EQ(Value(Key("a")).has_value(), true); // as long as an integer
  Fork longer([&] { Intruder(Files()).Put(Key("a"), "a longer text"); });
  EXPECT_TRUE(longer.Succeeds());
  EXPECT_THAT(StderrOf([&] { EXPECT_EQ(Value(Key("a")), std::nullopt); }),
              HasSubstr(": the value is not an integer\n"));
  std::vector<std::pair<std::string, int>> entries;
  EXPECT_EQ(store::List(Key(""), &entries), store::kNotInteger);
  EXPECT_THAT(entries, testing::Contains(std::make_pair(Key("b"), 1)));
  EXPECT_EQ(vconf_set_int(Key("a").c_str(), 2), 0);
  EXPECT_EQ(Value(Key("a")), 2);
}

// Threads and forks.

TEST_P(EachStore, ThreadsThatEndReleaseTheirSlots) {
  EXPECT_EQ(vconf_set_int(Key("a").c_str(), 1), 0);
  for (int i = 0; i < 1500; ++i) {
    std::thread([&] { EXPECT_EQ(Value(Key("a")), 1); }).join();
  }
}

struct ReadsWhenItGoes {
  std::string key;
  std::optional<int> *value;
  ~ReadsWhenItGoes() {
    if (value) {
      *value = Value(key);
    }
  }
};

TEST_P(EachStore, CanBeUsedWhileAThreadEnds) {
  EXPECT_EQ(vconf_set_int(Key("a").c_str(), 1), 0);
  std::optional<int> value;
  std::thread([&] {
    thread_local ReadsWhenItGoes late = {};
    late = {Key("a"), &value};
    EXPECT_EQ(Value(Key("a")), 1);
  }).join();
  EXPECT_EQ(value, 1);
}

TEST_P(EachStore, AForkedChildHasAStoreOfItsOwn) {
  EXPECT_EQ(vconf_set_int(Key("a").c_str(), 1), 0);
  EXPECT_EQ(Value(Key("a")), 1);
  Fork child([&] {
    EXPECT_EQ(Value(Key("a")), 1);
    EXPECT_EQ(vconf_set_int(Key("a").c_str(), 2), 0);
    Fork grandchild([&] {
      EXPECT_EQ(vconf_set_int(Key("a").c_str(), 3), 0);
      store::Close();
    });
    EXPECT_TRUE(grandchild.Succeeds());
    EXPECT_EQ(Value(Key("a")), 3);
  });
  EXPECT_EQ(Value(Key("a")).has_value(), true);
  EXPECT_TRUE(child.Succeeds());
  EXPECT_EQ(Value(Key("a")), 3);
  // Another process that checks for dead readers must find this one alive.
  Fork other([&] { EXPECT_EQ(vconf_set_int(Key("a").c_str(), 4), 0); });
  EXPECT_TRUE(other.Succeeds());
  EXPECT_EQ(Value(Key("a")), 4);
}

TEST_P(EachStore, AForkedChildInheritsNoFiles) {
  const auto count = [&] {
    int files = 0;
    for (const auto &descriptor : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code ended; // the descriptor of the iterator itself
      const std::string path = std::filesystem::read_symlink(descriptor, ended);
      files += path.compare(0, Files().size(), Files()) == 0 ? 1 : 0;
    }
    return files;
  };
  EXPECT_EQ(vconf_set_int(Key("a").c_str(), 1), 0);
  EXPECT_GT(count(), 0);
  Fork child([&] { EXPECT_EQ(count(), 0); });
  EXPECT_TRUE(child.Succeeds());
}

TEST_P(EachStore, CanForkWhileThreadsUseIt) {
  std::atomic<bool> stop{false};
  std::atomic<int> failures{0};
  std::list<std::thread> threads;
  EXPECT_EQ(vconf_set_int(Key("0").c_str(), 0), 0);
  for (int i = 0; i < 3; ++i) {
    threads.emplace_back([&, key = Key(std::to_string(i % 2))] {
      for (int value = 0; !stop; ++value) {
        failures += value % 8 == 0 && vconf_set_int(key.c_str(), value) != 0;
        failures += !Value(key);
      }
    });
  }
  for (int i = 0; i < 20; ++i) {
    Fork child([&] {
      EXPECT_EQ(vconf_set_int(Key("child").c_str(), i), 0);
      EXPECT_EQ(Value(Key("child")), i);
    });
    EXPECT_TRUE(child.Succeeds());
    EXPECT_EQ(Value(Key("child")), i);
  }
  stop = true;
  for (std::thread &thread : threads) {
    thread.join();
  }
  EXPECT_EQ(failures, 0);
}

TEST_P(EachStore, CanBeClosedWhileThreadsUseIt) {
  EXPECT_EQ(vconf_set_int(Key("a").c_str(), 1), 0);
  std::atomic<bool> stop{false};
  std::atomic<int> failures{0};
  std::thread reader([&] {
    while (!stop) {
      failures += Value(Key("a")) != 1;
    }
  });
  for (int i = 0; i < 100; ++i) {
    store::Close();
    EXPECT_EQ(vconf_set_int(Key("a").c_str(), 1), 0);
  }
  stop = true;
  reader.join();
  EXPECT_EQ(failures, 0);
}

} // namespace
