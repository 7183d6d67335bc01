#include "database.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "file_descriptor.h"

namespace lumio::store {

namespace {

constexpr size_t kMapSize = size_t{16} << 20;      // far more than settings need, but little address space
constexpr size_t kLockFileSize = size_t{64} << 10; // slots for about a thousand reading threads

// Occupies the descriptors of the standard streams that this process runs without. Otherwise the store's files could
// get these descriptors, and the process would print into the files.
int TakeStandardStreams(int any, std::array<FileDescriptor, 3> *taken) {
  for (FileDescriptor &stream : *taken) {
    FileDescriptor lowest(fcntl(any, F_DUPFD_CLOEXEC, 0));
    if (lowest.Get() < 0) {
      return errno;
    }
    if (lowest.Get() > STDERR_FILENO) {
      break;
    }
    stream = std::move(lowest);
  }
  return 0;
}

// Makes new entries of the directory survive a power cut, as the files do. EINVAL: the file system has nothing to sync.
int SyncDirectory(int directory) { return fsync(directory) == 0 || errno == EINVAL ? 0 : errno; }

int MakeDirectory(const std::string &path) {
  if (access(path.c_str(), F_OK) == 0) {
    return 0;
  }
  const size_t slash = path.find_last_of('/');
  const bool has_parent = slash != std::string::npos && slash != 0;
  const std::string parent = has_parent ? path.substr(0, slash) : slash == 0 ? "/" : ".";
  const int code = has_parent ? MakeDirectory(parent) : 0;
  if (code != 0) {
    return code;
  }
  if (mkdir(path.c_str(), 0700) != 0) {
    return errno == EEXIST ? 0 : errno; // another process was faster
  }
  const FileDescriptor directory(open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  return directory.Get() < 0 ? errno : SyncDirectory(directory.Get());
}

// Locks the directory against other processes that open the same database, until the descriptor is closed. If a process
// is killed while LMDB prepares the lock file, LMDB fails in a process that opens the half-prepared file.
int LockDirectory(int directory) {
  struct stat status;
  if (directory < 0 || fstat(directory, &status) != 0) {
    return errno;
  }
  if (status.st_uid != geteuid()) {
    return kForeign; // another user has made it, perhaps to read along
  }
  while (flock(directory, LOCK_EX) != 0) {
    if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

int FillDataFile(const std::string &path) {
  MDB_env *env = nullptr;
  int code = mdb_env_create(&env);
  if (code == 0) {
    mdb_env_set_mapsize(env, kMapSize);
    code = mdb_env_open(env, path.c_str(), MDB_NOSUBDIR | MDB_NOLOCK, 0600);
    if (code == 0) {
      code = mdb_env_sync(env, 1);
    }
    mdb_env_close(env);
  }
  return code;
}

// LMDB maps the lock file and writes to the map. Blocks allocated in advance keep a full disk from raising SIGBUS.
int FillLockFile(const std::string &path) {
  const FileDescriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  const std::vector<char> zeros(kLockFileSize);
  const ssize_t written = file.Get() < 0 ? -1 : write(file.Get(), zeros.data(), zeros.size());
  if (written < 0) {
    return errno;
  }
  return static_cast<size_t>(written) == zeros.size() ? 0 : ENOSPC;
}

// Creates the file completely, or not at all if the process is killed meanwhile.
int CreateWhole(const std::string &path, int (*fill)(const std::string &)) {
  if (access(path.c_str(), F_OK) == 0) {
    return 0;
  }
  const std::string unfinished = path + ".new";
  if (unlink(unfinished.c_str()) != 0 && errno != ENOENT) {
    return errno;
  }
  int code = fill(unfinished);
  if (code == 0 && rename(unfinished.c_str(), path.c_str()) != 0) {
    code = errno;
  }
  if (code != 0) {
    unlink(unfinished.c_str());
  }
  return code;
}

MDB_val KeyOf(const Seed &seed) { return {strlen(seed.key), const_cast<char *>(seed.key)}; }

} // namespace

Reader::~Reader() {
  const std::lock_guard<std::mutex> gate(database_.gate_);
  database_.readers_.erase(this);
  mdb_txn_abort(transaction_);
}

Database::Inside Database::Enter(int *code, Reader *reader) {
  const std::lock_guard<std::mutex> gate(gate_);
  *code = env_ ? 0 : Open();
  if (*code == 0 && reader && !reader->transaction_) {
    readers_.insert(reader);
  }
  return Inside(inside_);
}

// Keeps all threads out and waits until none is inside. Every thread loses its slot in the reader table, since neither
// a forked child nor a closed database may have transactions.
void Database::ShutGate() {
  gate_.lock();
  const std::lock_guard<std::shared_mutex> nobody(inside_);
  for (Reader *reader : readers_) {
    mdb_txn_abort(reader->transaction_);
    reader->transaction_ = nullptr;
  }
  readers_.clear();
}

bool Database::LeavesRoom(MDB_txn *transaction, MDB_dbi dbi) {
  MDB_stat tree;
  return mdb_stat(transaction, dbi, &tree) == 0 &&
         (tree.ms_branch_pages + tree.ms_leaf_pages) * tree.ms_psize <= kMapSize / 2;
}

void Database::Close() {
  ShutGate();
  mdb_env_close(env_);
  env_ = nullptr;
  gate_.unlock();
}

void Database::AfterForkInChild() {
  mdb_env_close(
      env_); // before the child opens its own: closing the lock file drops all locks that the process has on it
  env_ = nullptr;
  gate_.unlock();
}

int Database::Open() {
  const std::string directory = directory_();
  int code = MakeDirectory(directory);
  if (code != 0) {
    return code;
  }
  const FileDescriptor lock(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  std::array<FileDescriptor, 3> taken;
  code = LockDirectory(lock.Get());
  if (code == 0) {
    code = TakeStandardStreams(lock.Get(), &taken);
  }
  if (code == 0) {
    code = OpenFiles(directory);
  }
  if (code == 0 && durable_) {
    code = SyncDirectory(lock.Get());
  }
  if (code == 0) {
    code = PlantSeeds();
  }
  if (code != 0) {
    mdb_env_close(env_);
    env_ = nullptr;
  }
  return code;
}

int Database::OpenFiles(const std::string &directory) {
  int code = CreateWhole(directory + "/data.mdb", FillDataFile);
  if (code == 0) {
    code = CreateWhole(directory + "/lock.mdb", FillLockFile);
  }
  if (code == 0) {
    code = mdb_env_create(&env_);
  }
  if (code == 0) {
    mdb_env_set_mapsize(env_, kMapSize);
    code = mdb_env_open(env_, directory.c_str(), MDB_NOTLS | flags_, 0600);
  }
  if (code == 0) {
    code = mdb_reader_check(env_, nullptr);
  }
  return code;
}

// Plants only absent keys, under the writers' lock, and so never overwrites a value. Usually a read shows that nothing
// is absent.
int Database::PlantSeeds() {
  MDB_txn *transaction = nullptr;
  int code = mdb_txn_begin(env_, nullptr, MDB_RDONLY, &transaction);
  if (code != 0) {
    return code;
  }
  bool complete = true;
  code = mdb_dbi_open(transaction, nullptr, 0, &dbi_);
  for (const Seed &seed : seeds_) {
    MDB_val key = KeyOf(seed), value;
    complete = complete && code == 0 && mdb_get(transaction, dbi_, &key, &value) == 0;
  }
  mdb_txn_abort(transaction);
  if (code != 0 || complete) {
    return code;
  }
  code = mdb_txn_begin(env_, nullptr, 0, &transaction);
  if (code != 0) {
    return code;
  }
  for (const Seed &seed : seeds_) {
    MDB_val key = KeyOf(seed), value = {sizeof seed.value, const_cast<int *>(&seed.value)};
    const int put = mdb_put(transaction, dbi_, &key, &value, MDB_NOOVERWRITE);
    code = put == MDB_KEYEXIST || code != 0 ? code : put;
  }
  return EndWrite(transaction, code);
}

int Database::BeginRead(Reader &reader) {
  return reader.transaction_ ? mdb_txn_renew(reader.transaction_)
                             : mdb_txn_begin(env_, nullptr, MDB_RDONLY, &reader.transaction_);
}

int Database::EndWrite(MDB_txn *transaction, int code) {
  if (code != 0) {
    mdb_txn_abort(transaction);
    return code;
  }
  code = mdb_txn_commit(transaction);
  // The commit leaves its last page in the page cache, so that the next writer need not wait for this sync.
  return code == 0 && durable_ ? mdb_env_sync(env_, 1) : code;
}

// Returns whether another attempt can succeed. Readers that were killed in a transaction keep their slots, and every
// page that they could see, until a reader check. After a failed commit LMDB requires that the environment is opened
// again.
bool Database::Mend(int code) {
  switch (code) {
  case MDB_MAP_FULL:
  case MDB_READERS_FULL: {
    int ignored = 0;
    const Inside inside = Enter(&ignored);
    return ignored == 0 && mdb_reader_check(env_, nullptr) == 0;
  }
  case MDB_PANIC:
    Close();
    return true;
  default:
    return false;
  }
}

} // namespace lumio::store
