#include "fake_tv_service.h"

#include <mutex>
#include <sstream>
#include <utility>

#include "uncounted.h"

__attribute__((weak)) bool AnyLockHeld(); // of fake_kestrel

FakeTvService fake_tv_service;

namespace {

std::mutex g_mutex;
std::vector<std::string> g_calls;

// Records the call, runs the test's function for it, and returns the answer.
template <class... Arguments> int Answer(const char *name, int success, const Arguments &...arguments) {
  std::function<void()> during;
  int answer = success;
  {
    Uncounted uncounted;
    std::ostringstream call;
    std::string separator;
    call << name << "(";
    ((call << std::exchange(separator, ", ") << arguments), ...);
    call << ")" << (AnyLockHeld && AnyLockHeld() ? " locked" : "");
    std::lock_guard<std::mutex> lock(g_mutex);
    g_calls.push_back(call.str());
    const auto told = fake_tv_service.answers.find(name);
    answer = told == fake_tv_service.answers.end() ? success : told->second;
    const auto wanted = fake_tv_service.during.find(name);
    during = wanted == fake_tv_service.during.end() ? nullptr : wanted->second;
  }
  if (during) {
    during();
  }
  return answer;
}

// Answers a subscription, which gets a handle if it succeeds.
template <class Handle, class... Arguments>
int Subscription(const char *name, Handle &handle, const Arguments &...arguments) {
  const int answer = Answer(name, 1, arguments...);
  if (answer > 0) {
    handle = static_cast<Handle>(fake_tv_service.next_handle++);
  }
  return answer;
}

struct SignalSubscriber : ISignalSubscriber {
  int Subscribe(ESignalType type, void *user_data, EProfile profile, unsigned short screen_id) override {
    fake_tv_service.signal_user_data = user_data;
    return Answer("signal.Subscribe", 1, type, profile, screen_id);
  }
  int Unsubscribe(ESignalType type, EProfile profile, unsigned short screen_id) override {
    return Answer("signal.Unsubscribe", 1, type, profile, screen_id);
  }
} g_signal;

struct ProgramSubscriber : IProgramSubscriber {
  int SubscribeProgram(const TCProgramFilteringItem &item, int &handle) override {
    return Subscription("program.SubscribeProgram", handle, item.serviceId, item.eventId);
  }
  int UnsubscribeProgram(int handle) override { return Answer("program.UnsubscribeProgram", 1, handle); }
  int SubscribeProgramListPF(int arg, const TCServiceId &service_id, ESubscribeType type, int &handle) override {
    return Subscription("program.SubscribeProgramListPF", handle, arg, service_id, type);
  }
  int SubscribeProgramList(int arg, const TCServiceId &service_id, unsigned int first, unsigned int second,
                           ESubscribeType type, int &handle) override {
    return Subscription("program.SubscribeProgramList", handle, arg, service_id, first, second, type);
  }
  int UnsubscribeProgramList(int handle) override { return Answer("program.UnsubscribeProgramList", 1, handle); }
  bool GetMonitoringType(EProgramMonitoringType &type) override {
    type = PROGRAM_MONITORING_SCHEDULE;
    return Answer("program.GetMonitoringType", 1) != 0;
  }
} g_program;

struct SectionSubscriber : ISectionSubscriber {
  int SubscribeByCriteria(int key, const TCSectionCriteriaHelper &criteria, int &handle) override {
    fake_tv_service.section_key = key;
    return Subscription("section.SubscribeByCriteria", handle, criteria.pid, static_cast<int>(criteria.tableId));
  }
  int SubscribeByFilter(int key, const TCSectionFilterCriteriaHelper &filter, int &handle) override {
    fake_tv_service.section_key = key;
    return Subscription("section.SubscribeByFilter", handle, filter.pid, filter.match.size(), filter.mask.size());
  }
  int Unsubscribe(int handle) override { return Answer("section.Unsubscribe", 1, handle); }
} g_section;

struct PesSubscriber : IPESDataSubscriber {
  int Subscribe(void (*callback)(TSPESData &, void *), void *user_data, int *handle) override {
    fake_tv_service.on_pes = callback;
    return Subscription("pes.Subscribe", *handle, user_data);
  }
  int Unsubscribe(int handle) override { return Answer("pes.Unsubscribe", 1, handle); }
} g_pes;

struct CaptionSubscriber : IDataSubscriber {
  int Subscribe(void (*callback)(TSCaption &, void *), void *user_data, int *handle) override {
    fake_tv_service.on_caption = callback;
    return Subscription("caption.Subscribe", *handle, user_data);
  }
  int Unsubscribe(int handle) override { return Answer("caption.Unsubscribe", 1, handle); }
} g_caption;

struct Dsm : IDsm {
  int Attach(unsigned int &session_handle, const std::vector<unsigned char> &target, EDsmDataServiceType service_type,
             EDsmAttachType attach_type, void *user_data, bool flag) override {
    fake_tv_service.dsm_user_data = user_data;
    Uncounted uncounted;
    return Subscription("dsm.Attach", session_handle, std::string(target.begin(), target.end()), service_type,
                        attach_type, flag);
  }
  int Detach(unsigned int session_handle) override { return Answer("dsm.Detach", 1, session_handle); }
} g_dsm;

// Stores the object before it answers, so that a refusing service leaves one too.
template <class Object, class... Arguments>
int Create(const char *name, Object *object, Object **place, const Arguments &...arguments) {
  if (!fake_tv_service.gives_nothing) {
    *place = object;
  }
  return Answer(name, 0, arguments...);
}

} // namespace

std::vector<std::string> ServiceCalls() {
  std::lock_guard<std::mutex> lock(g_mutex);
  return g_calls;
}

void ClearServiceCalls() {
  std::lock_guard<std::mutex> lock(g_mutex);
  g_calls.clear();
}

ISignalSubscriber *FakeSignalSubscriber() { return &g_signal; }
IProgramSubscriber *FakeProgramSubscriber() { return &g_program; }
ISectionSubscriber *FakeSectionSubscriber() { return &g_section; }
IPESDataSubscriber *FakePesSubscriber() { return &g_pes; }
IDataSubscriber *FakeCaptionSubscriber() { return &g_caption; }
IDsm *FakeDsm() { return &g_dsm; }

namespace TVServiceAPI {

int CreateSignalSubscriber(int (*callback)(ESignalType, EProfile, unsigned short, TSSignalData, void *),
                           ISignalSubscriber **subscriber) {
  fake_tv_service.on_signal = callback;
  return Create<ISignalSubscriber>("CreateSignalSubscriber", &g_signal, subscriber);
}

int CreateProgramSubscriber(void (*callback)(EProgramChangeType, TCProgramData *, int, int),
                            IProgramSubscriber **subscriber) {
  fake_tv_service.on_program = callback;
  return Create<IProgramSubscriber>("CreateProgramSubscriber", &g_program, subscriber);
}

int CreateSectionSubscriber(void (*callback)(bool, unsigned short, unsigned char *, int), EProfile profile, int group,
                            ISectionSubscriber **subscriber) {
  fake_tv_service.on_section = callback;
  return Create<ISectionSubscriber>("CreateSectionSubscriber", &g_section, subscriber, profile, group);
}

int CreatePESDataSubscriber(EProfile profile, int group, IPESDataSubscriber **subscriber) {
  return Create<IPESDataSubscriber>("CreatePESDataSubscriber", &g_pes, subscriber, profile, group);
}

int CreateDataSubscriber(EProfile profile, int group, IDataSubscriber **subscriber) {
  return Create<IDataSubscriber>("CreateDataSubscriber", &g_caption, subscriber, profile, group);
}

int CreateDsm(void (*callback)(TSDsmMessage &), IDsm **dsm) {
  fake_tv_service.on_dsm = callback;
  return Create<IDsm>("CreateDsm", &g_dsm, dsm);
}

int DestroySignalSubscriber() { return Answer("DestroySignalSubscriber", 0); }
int DestroyProgramSubscriber() { return Answer("DestroyProgramSubscriber", 0); }
int DestroySectionSubscriber() { return Answer("DestroySectionSubscriber", 0); }
int DestroyPESDataSubscriber() { return Answer("DestroyPESDataSubscriber", 0); }
int DestroyDataSubscriber() { return Answer("DestroyDataSubscriber", 0); }
int DestroyDsm() { return Answer("DestroyDsm", 0); }

} // namespace TVServiceAPI
