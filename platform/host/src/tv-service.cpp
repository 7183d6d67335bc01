#include "tv-service.h"

#include <cstdlib>
#include <limits>

#include <lumio-host/broadcast.h>

#include "broadcast.h"

namespace lumio::tv {

namespace {

constexpr int kCreated = 0;
constexpr int kNotCreated = -1;

// Returns the object of a kind whose notifications go to the one callback of the process.
template <class Subscriber, class Interface>
int Create(Operation operation, Subscriber &object, typename Subscriber::Callback callback, Interface **subscriber) {
  broadcast::OpenFromEnvironment();
  return Carry(operation, [&] {
    if (!callback || !subscriber) {
      return kNotCreated;
    }
    object.callback = callback;
    *subscriber = &object;
    return kCreated;
  });
}

// Returns the object of a kind whose subscriptions each have a callback.
template <class Subscriber, class Interface>
int Create(Operation operation, Subscriber &object, Interface **subscriber) {
  broadcast::OpenFromEnvironment();
  return Carry(operation, [&] {
    if (!subscriber) {
      return kNotCreated;
    }
    *subscriber = &object;
    return kCreated;
  });
}

template <class Subscriber> int Destroy(Operation operation, Subscriber &object) {
  return Carry(operation, [&] {
    object.subscriptions.Clear();
    return kCreated;
  });
}

} // namespace

int NextHandle() {
  static std::atomic<unsigned int> count{0};
  return static_cast<int>(count++ % std::numeric_limits<int>::max()) + 1;
}

int Carry(Operation operation, const std::function<int()> &perform) {
  return Service::Get().plan.Carry(operation, perform);
}

Service &Service::Get() {
  static Service &service = *new Service; // never destroyed: threads that still run at exit may call it
  return service;
}

// The service's own threads end at exit, while everything that existed at the first use of the service still exists.
Service::Service() {
  std::atexit([] { Get().Stop(); });
}

void Service::Flush() {
  ForEachKind([](auto &subscriptions) { subscriptions.thread.Flush(); });
}

void Service::Stop() {
  ForEachKind([](auto &subscriptions) { subscriptions.thread.Stop(); });
}

void RefuseNext(Operation operation, int result) { Service::Get().plan.RefuseNext(operation, result); }

void DuringNext(Operation operation, std::function<void()> action) {
  Service::Get().plan.DuringNext(operation, std::move(action));
}

std::vector<Subscription> Subscriptions() {
  std::vector<Subscription> list;
  Service::Get().ForEachKind([&](auto &subscriptions) { subscriptions.List(list); });
  return list;
}

void Flush() { Service::Get().Flush(); }

void Shutdown() {
  broadcast::Close();
  Service::Get().Flush();
  Service::Get().Stop();
}

} // namespace lumio::tv

namespace TVServiceAPI {

using lumio::tv::Create;
using lumio::tv::Destroy;
using lumio::tv::Operation;
using lumio::tv::Service;

int CreateSignalSubscriber(lumio::tv::SignalService::Callback callback, ISignalSubscriber **subscriber) {
  return Create(Operation::CreateSignalSubscriber, Service::Get().signal, callback, subscriber);
}

int CreateProgramSubscriber(lumio::tv::ProgramService::Callback callback, IProgramSubscriber **subscriber) {
  return Create(Operation::CreateProgramSubscriber, Service::Get().program, callback, subscriber);
}

// There is one stream for every profile and group.
int CreateSectionSubscriber(lumio::tv::SectionService::Callback callback, EProfile, int,
                            ISectionSubscriber **subscriber) {
  return Create(Operation::CreateSectionSubscriber, Service::Get().section, callback, subscriber);
}

int CreatePESDataSubscriber(EProfile, int, IPESDataSubscriber **subscriber) {
  return Create(Operation::CreatePESDataSubscriber, Service::Get().pes, subscriber);
}

int CreateDataSubscriber(EProfile, int, IDataSubscriber **subscriber) {
  return Create(Operation::CreateDataSubscriber, Service::Get().caption, subscriber);
}

int CreateDsm(lumio::tv::DsmService::Callback callback, IDsm **dsm) {
  return Create(Operation::CreateDsm, Service::Get().dsm, callback, dsm);
}

int DestroySignalSubscriber() { return Destroy(Operation::DestroySignalSubscriber, Service::Get().signal); }
int DestroyProgramSubscriber() { return Destroy(Operation::DestroyProgramSubscriber, Service::Get().program); }
int DestroySectionSubscriber() { return Destroy(Operation::DestroySectionSubscriber, Service::Get().section); }
int DestroyPESDataSubscriber() { return Destroy(Operation::DestroyPESDataSubscriber, Service::Get().pes); }
int DestroyDataSubscriber() { return Destroy(Operation::DestroyDataSubscriber, Service::Get().caption); }
int DestroyDsm() { return Destroy(Operation::DestroyDsm, Service::Get().dsm); }

} // namespace TVServiceAPI
