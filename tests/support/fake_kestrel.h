// The platform's lock, recorded. Stands in for the real Kestrel::TCMutex; CAutoLock stays the real one.
#pragma once

#include <functional>
#include <string>
#include <vector>

// What happened to any lock so far: "Create", "Lock", "Unlock", "Destroy". Thread-safe.
std::vector<std::string> LockCalls();

void ClearLockCalls();

// Fails the test unless each operation takes one lock, once, and gives it back, and only the first one creates it.
void ExpectEachLocksOnce(const std::vector<std::function<void()>> &operations);

// Whether any lock is held right now, by whichever thread.
bool AnyLockHeld();

// Runs `call` once, in the next Lock() before the lock is taken: what another thread does that comes first. When it
// destroys the lock, that Lock() is refused.
void BeforeNextLock(std::function<void()> call);

// Runs `call` once, in the next Destroy() before the lock is closed: what another thread does that comes first.
void BeforeNextDestroy(std::function<void()> call);

// Lets the next Create() fail.
void RefuseNextCreate();

// Lets the next `count` Lock() fail although the lock is created; 0 ends that.
void RefuseLocks(int count);

// Enough for RefuseLocks() to refuse whatever a test does.
inline constexpr int kAlways = 1 << 30;
