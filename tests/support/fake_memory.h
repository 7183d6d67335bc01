// Makes allocations fail on request. Each link of an Eina list is then an allocation of its own.
#pragma once

// Makes the nth allocation of this thread from now on fail, counted from 1. It counts malloc, calloc, realloc, strdup
// and new, whoever calls them, except for the fakes' own records. Later allocations succeed again. 0 disarms it.
void FailAllocation(int nth);

// Returns how many allocations this thread has made since the last FailAllocation().
int AllocationsMade();

// Counts what this thread releases with free or delete while the watch exists, except for the fakes' own records. Read
// the count before anything else can reuse the block.
class ReleaseWatch {
public:
  // Watches one block, or all blocks if `memory` is null.
  explicit ReleaseWatch(const void *memory = nullptr);
  ~ReleaseWatch();
  ReleaseWatch(const ReleaseWatch &) = delete;
  ReleaseWatch &operator=(const ReleaseWatch &) = delete;

  int Count() const { return count_; }

  static void Released(const void *memory);

private:
  const void *memory_;
  ReleaseWatch *next_;
  int count_ = 0;
};

// Runs `call` again and again: with its first allocation failing, then its second, until a run has no such allocation.
// After each run with a failure, calls `check` with the number of the failed allocation.
template <class Call, class Check> void FailEachAllocation(Call call, Check check) {
  for (int nth = 1;; ++nth) {
    FailAllocation(nth);
    call();
    const bool failed = AllocationsMade() >= nth;
    FailAllocation(0);
    if (!failed) {
      return;
    }
    check(nth);
  }
}
