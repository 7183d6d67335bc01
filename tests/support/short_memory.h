// Tests operations that throw when there is no memory.
#pragma once

#include <gmock/gmock.h>

#include <new>

#include "fake_kestrel.h"
#include "fake_memory.h"

// Runs `call` with its first allocation failing, then its second, until it succeeds. Each failure must throw
// std::bad_alloc and release the lock; `check` runs after it.
template <class Call, class Check> void ThrowAtEachAllocation(Call call, Check check) {
  bool thrown = false;
  int failures = 0;
  const auto guarded = [&] {
    thrown = false;
    try {
      call();
    } catch (const std::bad_alloc &) {
      thrown = true;
    }
  };
  FailEachAllocation(guarded, [&](int) {
    ++failures;
    EXPECT_TRUE(thrown);
    EXPECT_FALSE(AnyLockHeld());
    check();
  });
  EXPECT_FALSE(thrown) << "enough memory in the end";
  EXPECT_GE(failures, 1);
}

// Runs `call` with its first, second, ... `count`th allocation failing, then once with enough memory. For calls whose
// later allocations must not fail: Ecore leaks if memory runs out in the middle of a wake-up.
template <class Call> void FailFirstAllocations(int count, Call call) {
  for (int nth = 1; nth <= count; ++nth) {
    FailAllocation(nth);
    call();
  }
  FailAllocation(0);
  call();
}

// Too long for the internal buffer of std::string.
inline constexpr char kLongName[] = "a name that needs memory of its own wherever it is copied";
