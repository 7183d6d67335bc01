// Memory that runs short on request. Links of Eina lists are then allocated and released one by one.
#pragma once

// Makes the nth allocation from now on, counted from 1, fail on this thread, whoever makes it: malloc, calloc, realloc,
// strdup and new alike, except for what the fakes allocate for their records. Later ones succeed again. 0 disarms.
void FailAllocation(int nth);

// Allocations of this thread since the last FailAllocation().
int AllocationsMade();

// Counts what this thread releases with free or delete while the watch exists, except for what the fakes release.
// Read the count before anything else can reuse the block.
class ReleaseWatch {
public:
  // Watches one block; with null, all of them.
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

// Runs `call` with its first, second, ... allocation failing until a run makes no allocation that could fail any more,
// and hands each run that had a failure to `check`, with the number of the allocation that failed.
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
