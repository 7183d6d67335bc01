// Replaces the platform's Kestrel::TCMutex and records its calls. CAutoLock is the real one.
#pragma once

#include <functional>
#include <string>
#include <vector>

// The calls to all locks so far: "Create", "Lock", "Unlock", "Destroy". Thread-safe.
std::vector<std::string> LockCalls();

void ClearLockCalls();

// Fails the test unless each operation locks and unlocks one lock once, and only the first operation creates it.
void ExpectEachLocksOnce(const std::vector<std::function<void()>> &operations);

// Returns whether any thread holds any lock now.
bool AnyLockHeld();

// Runs `call` once, in the next Lock() before the lock is taken, like another thread that comes first. If `call`
// destroys the lock, that Lock() fails.
void BeforeNextLock(std::function<void()> call);

// Runs `call` once, in the next Destroy() before the lock is closed, like another thread that comes first.
void BeforeNextDestroy(std::function<void()> call);

// Makes the next Create() fail.
void RefuseNextCreate();

// Makes the next `count` calls of Lock() fail although the lock is created; 0 ends that.
void RefuseLocks(int count);

// A count for RefuseLocks() that no test uses up.
inline constexpr int kAlways = 1 << 30;
