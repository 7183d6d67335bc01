#include "fake_kestrel.h"

#include <Kestrel/TCMutex.h>

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <utility>

#include "uncounted.h"

namespace {

std::mutex g_mutex;
std::vector<std::string> g_calls;
std::atomic<int> g_held{0};
std::atomic<bool> g_refuse_next_create{false};
std::atomic<int> g_refuse_locks{0};
std::function<void()> g_before_next_lock, g_before_next_destroy;

void Record(const char *call) {
  Uncounted uncounted;
  std::lock_guard<std::mutex> lock(g_mutex);
  g_calls.push_back(call);
}

std::function<void()> Take(std::function<void()> &call) {
  std::lock_guard<std::mutex> lock(g_mutex);
  return std::exchange(call, nullptr);
}

} // namespace

std::vector<std::string> LockCalls() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_calls;
}

void ClearLockCalls() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_calls.clear();
}

void ExpectEachLocksOnce(const std::vector<std::function<void()>> &operations) {
  std::vector<std::string> expected = {"Create", "Lock", "Unlock"};
  for (size_t i = 0; i < operations.size(); ++i) {
    ClearLockCalls();
    operations[i]();
    EXPECT_EQ(LockCalls(), expected) << "operation " << i;
    expected = {"Lock", "Unlock"};
  }
}

bool AnyLockHeld() { return g_held != 0; }

void BeforeNextLock(std::function<void()> call) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_before_next_lock = std::move(call);
}

void BeforeNextDestroy(std::function<void()> call) {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_before_next_destroy = std::move(call);
}

void RefuseNextCreate() { g_refuse_next_create = true; }

void RefuseLocks(int count) { g_refuse_locks = count; }

namespace Kestrel {

TCMutex::TCMutex() = default;
TCMutex::~TCMutex() = default;

bool TCMutex::Create() {
  Uncounted uncounted;
  Record("Create");
  if (g_refuse_next_create.exchange(false)) {
    return false;
  }
  m_handle = reinterpret_cast<std::uintptr_t>(new std::mutex);
  return true;
}

void TCMutex::Destroy() {
  Record("Destroy");
  if (const std::function<void()> before = Take(g_before_next_destroy)) {
    before();
  }
  delete reinterpret_cast<std::mutex *>(m_handle.exchange(0));
}

bool TCMutex::Lock() {
  Record("Lock");
  if (!IsCreated()) {
    ADD_FAILURE() << "Lock() on a mutex that is not created";
    return false;
  }
  if (const std::function<void()> before = Take(g_before_next_lock)) {
    before();
    if (!IsCreated()) {
      return false;
    }
  }
  if (g_refuse_locks > 0) {
    --g_refuse_locks;
    return false;
  }
  reinterpret_cast<std::mutex *>(m_handle.load())->lock();
  ++g_held;
  return true;
}

bool TCMutex::Unlock() {
  Record("Unlock");
  if (!IsCreated()) {
    ADD_FAILURE() << "Unlock() of a mutex that is not created";
    return false;
  }
  --g_held;
  reinterpret_cast<std::mutex *>(m_handle.load())->unlock();
  return true;
}

} // namespace Kestrel
