// Construction and destruction of the two callback registries: the lock is constructed last and destroyed first.
#include <LumioStateSubscriber.h>
#include <PvrServiceSubscriber.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

namespace {

void Told(ELUMIO_STATE, void *) {}
void ToldResult(ps_result_thirdpart, void *) {}
bool ToldState(pvr_state_e, void *) { return true; }

bool MapsOf(const Kestrel::TCMutex *mutex, size_t size) {
  if (mutex == &viewerMutex) {
    return CLumioStateSubscriber::m_StateChangedCBMap.size() == size &&
           CLumioStateSubscriber::m_StateChangedCBRequesterMap.size() == size;
  }
  return CPvrServiceSubscriber::m_PvrResultCBMap.size() == size &&
         CPvrServiceSubscriber::m_pvrStateCallbackMap.size() == size;
}

bool IsOfARegistry(const Kestrel::TCMutex *mutex) { return mutex == &viewerMutex || mutex == &pvrMutex; }

int g_destroyed; // locks that were destroyed before their maps
bool g_tell;

} // namespace

// Stands in for the platform's lock. While a lock exists, its maps must be able to hold entries.
namespace Kestrel {

TCMutex::TCMutex() {
  if (this == &viewerMutex) {
    CLumioStateSubscriber::m_StateChangedCBMap[Told] = nullptr;
    CLumioStateSubscriber::m_StateChangedCBRequesterMap[Told] = "a name that is too long to stand in the string itself";
  } else if (this == &pvrMutex) {
    CPvrServiceSubscriber::m_PvrResultCBMap[ToldResult] = nullptr;
    CPvrServiceSubscriber::m_pvrStateCallbackMap[ToldState] = nullptr;
  }
}

TCMutex::~TCMutex() {
  if (IsOfARegistry(this) && MapsOf(this, 1) && ++g_destroyed == 2 && g_tell) {
    fputs("both in time\n", stderr);
  }
}

bool TCMutex::Create() { return false; }
void TCMutex::Destroy() {}
bool TCMutex::Lock() { return false; }
bool TCMutex::Unlock() { return false; }

} // namespace Kestrel

TEST(Lifetime, TheMapsAreThereBeforeTheLock) {
  EXPECT_TRUE(MapsOf(&viewerMutex, 1));
  EXPECT_TRUE(MapsOf(&pvrMutex, 1));
}

TEST(Lifetime, TheLockIsNotCreatedBeforeItIsUsed) {
  EXPECT_FALSE(viewerMutex.IsCreated());
  EXPECT_FALSE(pvrMutex.IsCreated());
}

TEST(Lifetime, TheLockGoesBeforeTheMaps) {
  g_tell = true;
  EXPECT_EXIT(exit(0), testing::ExitedWithCode(0), "both in time");
  g_tell = false;
}
