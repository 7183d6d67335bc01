#include "tvs_shared.h"

// Nothing here writes to a standard stream; the modules do, some of them in callbacks that run while the process starts
// or ends. This header puts the streams' initialiser in front of the lock, so the streams are ready before the lock is
// constructed and are flushed after it is destroyed.
#include <iostream>
#include <utility>

using namespace lumio::tvs;

// All that is initialised when the library is loaded: the streams, then the lock, which is not created yet. Everything
// else below is constant, and the containers stay null until an operation needs them.
Kestrel::TCMutex lumio::tvs::mutex;
std::atomic<unsigned> lumio::tvs::g_releases{0};

EProfile Subscriber::m_profile = static_cast<EProfile>(1);
int Subscriber::m_group;
int Subscriber::m_captionSubscriptionHandle;
int Subscriber::m_pesSubscriptionHandle;
int Subscriber::m_eventType[6];
std::map<std::string, Subscriber *> *Subscriber::m_pSubscriberInstances;
std::multimap<TSignalInfo, Subscriber *> *Subscriber::m_pSignalSubscriptions;
std::map<int, Subscriber *> *Subscriber::m_pProgramSubscriptions;
std::map<int, Subscriber *> *Subscriber::m_pSectionSubscriptions;
std::map<int, Subscriber *> *Subscriber::m_pDsmSubscriptions;
std::set<std::string> *Subscriber::m_pPesSubscriptions;
std::set<std::string> *Subscriber::m_pCaptionSubscriptions;
ISignalSubscriber *Subscriber::m_pSignalSubscriber;
IProgramSubscriber *Subscriber::m_pProgramSubscriber;
ISectionSubscriber *Subscriber::m_pSectionSubscriber;
IPESDataSubscriber *Subscriber::m_pPESDataSubscriber;
IDataSubscriber *Subscriber::m_pCaptionSubscriber;
IDsm *Subscriber::m_pDsm;

// --- The handler's lock ----------------------------------------------------------------------------------------------

namespace {

// A refusal means that another thread has just closed the lock. This many in a row mean that the lock is broken, and
// the main loop must go on.
constexpr int kMostRefusals = 1000;

} // namespace

bool HandlerLock::Take(int refusals) {
  if (refusals == kMostRefusals || !(mutex.IsCreated() || mutex.Create())) {
    throw LockRefused();
  }
  return mutex.Lock();
}

HandlerLock::~HandlerLock() {
  if (held_) {
    mutex.Unlock();
  }
}

// --- Copies ----------------------------------------------------------------------------------------------------------

CTVServiceSubscriber::CTVServiceSubscriber(const std::string &name)
    : m_name(name), m_signalCallback(nullptr), m_ttSignalCallback(nullptr), m_sectionCallback(nullptr),
      m_dsmCallback(nullptr), m_pesCallback(nullptr), m_captionCallback(nullptr), m_programCallback(nullptr),
      m_pUserData(nullptr), m_sectionHandle(0) {}

CTVServiceSubscriber *CTVServiceSubscriber::m_GetSubscriber(std::string name, std::string stream) {
  const auto *instances = Load(m_pSubscriberInstances);
  if (!instances) {
    return nullptr;
  }
  const auto found = instances->find(name + "_" + stream);
  return found == instances->end() ? nullptr : found->second;
}

// Deliberate: an existing copy is not updated. Callbacks that a module sets after its first subscription to a kind of
// stream are never called (docs/surprises.md).
CTVServiceSubscriber *CTVServiceSubscriber::m_GetCopiedSubscriptionInstance(std::string stream) {
  CreateIfMissing(m_pSubscriberInstances);
  const std::string key = m_name + "_" + stream;
  const auto found = m_pSubscriberInstances->find(key);
  if (found != m_pSubscriberInstances->end()) {
    return found->second;
  }
  auto copy = std::make_unique<CTVServiceSubscriber>(*this);
  m_pSubscriberInstances->emplace(key, copy.get());
  return copy.release();
}

void lumio::tvs::ReleaseCopies() {
  if (!Subscriber::m_pSubscriberInstances) {
    return;
  }
  for (const auto &[key, instance] : *Subscriber::m_pSubscriberInstances) {
    delete instance;
  }
  Discard(Subscriber::m_pSubscriberInstances);
}
