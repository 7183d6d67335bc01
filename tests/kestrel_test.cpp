// The platform's lock, with real threads.
#include <Kestrel/CAutoLock.h>

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <thread>
#include <type_traits>

#include "race.h"

using Kestrel::TCMutex;

namespace {

constexpr int kRounds = 2000;

bool UnlockOnAnotherThread(TCMutex &mutex) {
  bool unlocked = false;
  std::thread([&] { unlocked = mutex.Unlock(); }).join();
  return unlocked;
}

TEST(Mutex, IsNotCreatedAtFirst) {
  TCMutex mutex;
  EXPECT_FALSE(mutex.IsCreated());
  EXPECT_FALSE(std::is_copy_constructible<TCMutex>::value);
  EXPECT_FALSE(std::is_copy_assignable<TCMutex>::value);
}

TEST(Mutex, CannotBeTakenBeforeItIsCreated) {
  TCMutex mutex;
  EXPECT_FALSE(mutex.Lock());
  EXPECT_FALSE(mutex.Unlock());
  EXPECT_FALSE(mutex.IsCreated());
}

TEST(Mutex, IsTakenAndReleased) {
  TCMutex mutex;
  EXPECT_TRUE(mutex.Create());
  EXPECT_TRUE(mutex.IsCreated());
  EXPECT_TRUE(mutex.Lock());
  EXPECT_TRUE(mutex.Unlock());
  EXPECT_TRUE(mutex.Lock());
  EXPECT_TRUE(mutex.Unlock());
}

TEST(Mutex, IsCreatedAgainAfterItWasDestroyed) {
  TCMutex mutex;
  mutex.Create();
  mutex.Destroy();
  EXPECT_FALSE(mutex.IsCreated());
  EXPECT_FALSE(mutex.Lock());
  EXPECT_TRUE(mutex.Create());
  EXPECT_TRUE(mutex.Lock());
  EXPECT_TRUE(mutex.Unlock());
}

TEST(Mutex, DestroyDoesNothingBeforeCreate) {
  TCMutex mutex;
  mutex.Destroy();
  EXPECT_FALSE(mutex.IsCreated());
}

TEST(Mutex, IsReleasedOnlyByTheThreadThatHoldsIt) {
  TCMutex mutex;
  mutex.Create();
  EXPECT_FALSE(mutex.Unlock()) << "nobody holds it";
  mutex.Lock();
  EXPECT_FALSE(UnlockOnAnotherThread(mutex));
  EXPECT_TRUE(mutex.Unlock()) << "the refused unlock must not have given it back";
  EXPECT_FALSE(mutex.Unlock());
}

TEST(MutexDeathTest, SaysThatItIsNotRecursive) {
  TCMutex mutex;
  mutex.Create();
  mutex.Lock();
  EXPECT_DEATH(mutex.Lock(), "already holds.*not recursive.*Unlock the mutex first");
  EXPECT_DEATH(CAutoLock lock(mutex), "already holds");
  mutex.Unlock();
}

TEST(Mutex, ExcludesOtherThreads) {
  TCMutex mutex;
  mutex.Create();
  int count = 0;
  Race([&](int) {
    for (int round = 0; round < kRounds; ++round) {
      EXPECT_TRUE(mutex.Lock());
      ++count;
      EXPECT_TRUE(mutex.Unlock());
    }
  });
  EXPECT_EQ(count, kThreads * kRounds);
}

TEST(Mutex, MayBeCreatedBySeveralThreadsAtOnce) {
  for (int round = 0; round < kRounds / 20; ++round) {
    TCMutex mutex;
    int count = 0;
    Race([&](int) {
      EXPECT_TRUE(mutex.Create());
      EXPECT_TRUE(mutex.Lock());
      ++count;
      EXPECT_TRUE(mutex.Unlock());
    });
    ASSERT_EQ(count, kThreads);
  }
}

TEST(Mutex, StaysHeldWhenItIsDestroyed) {
  TCMutex mutex;
  mutex.Create();
  mutex.Lock();
  mutex.Destroy();
  EXPECT_FALSE(mutex.IsCreated());

  std::atomic<bool> got_it{false};
  std::thread other([&] {
    CAutoLock lock(mutex);
    got_it = true;
  });
  // The other thread creates the mutex again before it waits; from then on only the lock keeps it out.
  while (!mutex.IsCreated()) {
    std::this_thread::yield();
  }
  EXPECT_FALSE(UnlockOnAnotherThread(mutex));
  EXPECT_FALSE(got_it);
  EXPECT_TRUE(mutex.Unlock());
  other.join();
  EXPECT_TRUE(got_it);
}

// Threads destroy the mutex while others hold it, wait for it and are about to wait for it.
TEST(Mutex, ExcludesOtherThreadsWhileItIsDestroyedAndCreated) {
  TCMutex mutex;
  int count = 0;
  Race([&](int) {
    for (int round = 0; round < kRounds; ++round) {
      mutex.Create();
      if (mutex.Lock()) {
        ++count;
        mutex.Destroy();
        --count;
        EXPECT_EQ(count, 0);
        EXPECT_TRUE(mutex.Unlock());
      }
    }
  });
  EXPECT_EQ(count, 0);
}

TEST(AutoLock, CreatesAndHoldsTheMutexForAScope) {
  TCMutex mutex;
  {
    CAutoLock lock(mutex);
    EXPECT_TRUE(mutex.IsCreated());
    EXPECT_TRUE(mutex.Unlock()) << "this thread holds it";
    EXPECT_TRUE(mutex.Lock());
  }
  EXPECT_FALSE(mutex.Unlock()) << "it was given back";
  EXPECT_TRUE(mutex.IsCreated()) << "it is kept";
}

TEST(AutoLock, DestroysTheMutexOnRequest) {
  TCMutex mutex;
  {
    CAutoLock lock(mutex, CAutoLock::DESTROY_ON_RELEASE);
    EXPECT_TRUE(mutex.IsCreated());
  }
  EXPECT_FALSE(mutex.IsCreated());
  EXPECT_FALSE(mutex.Unlock());
  { CAutoLock lock(mutex); }
  EXPECT_TRUE(mutex.IsCreated());
}

TEST(AutoLock, UnlocksEarlyAndLocksAgain) {
  TCMutex mutex;
  {
    CAutoLock lock(mutex);
    lock.Unlock();
    EXPECT_FALSE(mutex.Unlock()) << "it was given back";
    mutex.Destroy();
    lock.Lock();
    EXPECT_TRUE(mutex.IsCreated()) << "taking it again creates it again";
    EXPECT_TRUE(mutex.Unlock()) << "this thread holds it";
    EXPECT_TRUE(mutex.Lock());
    lock.Unlock();
  }
  EXPECT_FALSE(mutex.Unlock());
  EXPECT_TRUE(mutex.IsCreated());
}

TEST(AutoLock, DestroysTheMutexEvenAfterAnEarlyUnlock) {
  TCMutex mutex;
  {
    CAutoLock lock(mutex, CAutoLock::DESTROY_ON_RELEASE);
    lock.Unlock();
    EXPECT_TRUE(mutex.IsCreated());
  }
  EXPECT_FALSE(mutex.IsCreated());
}

TEST(AutoLock, UnlocksWhenAnExceptionIsThrown) {
  TCMutex mutex;
  EXPECT_THROW(
      {
        CAutoLock lock(mutex);
        throw std::runtime_error("passes the scope");
      },
      std::runtime_error);
  EXPECT_FALSE(mutex.Unlock()) << "it was given back";
}

// A mutex that another thread seems to destroy between its creation and the first attempt to lock it.
class DestroyedOnce : public TCMutex {
public:
  bool Lock() override {
    if (!destroyed_) {
      destroyed_ = true;
      Destroy();
    }
    return TCMutex::Lock();
  }

private:
  bool destroyed_ = false;
};

TEST(AutoLock, CreatesTheMutexAgainWhenItIsDestroyedInBetween) {
  DestroyedOnce mutex;
  CAutoLock lock(mutex);
  EXPECT_TRUE(mutex.IsCreated());
  EXPECT_TRUE(mutex.Unlock()) << "this thread holds it";
  EXPECT_TRUE(mutex.Lock());
}

TEST(AutoLock, AlwaysHoldsTheMutexThoughOthersDestroyIt) {
  TCMutex mutex;
  int count = 0;
  Race([&](int thread) {
    for (int round = 0; round < kRounds; ++round) {
      CAutoLock lock(mutex, thread % 2 == 0 ? CAutoLock::DESTROY_ON_RELEASE : CAutoLock::KEEP);
      ++count;
    }
  });
  EXPECT_EQ(count, kThreads * kRounds);
}

} // namespace
