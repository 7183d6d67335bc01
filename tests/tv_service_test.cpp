// The host platform's TV service, through its interface and its control interface.
#include <lumio-host/tv-control.h>

#include <TVServiceAPI.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <set>
#include <sstream>
#include <thread>
#include <utility>

#include "told.h"

using lumio::tv::Kind;
using lumio::tv::Operation;
using lumio::tv::Subscription;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

// Most callbacks of the service have no user data.
Told g_told;
std::function<void()> g_on_section; // runs in the next section callback

std::string Text(const std::vector<unsigned char> &bytes) { return {bytes.begin(), bytes.end()}; }

template <class... Parts> void Tell(const Parts &...parts) {
  std::ostringstream text;
  const char *separator = "";
  ((text << separator << parts, separator = " "), ...);
  g_told.Add(text.str());
}

int OnSignal(ESignalType type, EProfile profile, unsigned short screen, TSSignalData data, void *user_data) {
  Tell("signal", type, profile, screen, "is", data.value, data.extra, "for", static_cast<const char *>(user_data));
  return 0;
}

std::vector<TCProgramData *> g_programs; // used by the service's thread until everything is delivered

void OnProgram(EProgramChangeType change, TCProgramData *data, int position, int handle) {
  g_programs.push_back(data);
  Tell("programme", change, data->title, position, handle);
}

void OnSection(bool valid, unsigned short size, unsigned char *bytes, int key) {
  Tell("section", valid, Text({bytes, bytes + size}), key);
  bytes[0] = '!'; // no other callback must see this
  const std::function<void()> action = std::exchange(g_on_section, nullptr);
  if (action) {
    action();
  }
}

template <class Data> void OnData(Data &data, void *user_data) {
  Tell("data", Text(data.payload), data.pts, "for", static_cast<const char *>(user_data));
  data.payload.clear(); // no other callback must see this
}

void OnDsm(TSDsmMessage &message) {
  const auto *bytes = static_cast<const char *>(message.data);
  Tell("message", message.type, message.status, message.version, message.moduleId, "of", message.sessionHandle,
       std::string(bytes, message.size));
}

char g_first[] = "first", g_second[] = "second";

constexpr TSSignalData kLocked = {1, 50};

std::vector<unsigned char> Bytes(const std::string &text) { return {text.begin(), text.end()}; }

TCProgramData Programme(const std::string &title) {
  TCProgramData data;
  data.title = title;
  return data;
}

TSDsmMessage Message(int session, const char *bytes = "") {
  return {1, 2, 3, session, 4, static_cast<std::uint32_t>(std::string(bytes).size()), bytes};
}

TCSectionCriteriaHelper Criteria(unsigned short pid, char table) {
  TCSectionCriteriaHelper criteria;
  criteria.pid = pid;
  criteria.tableId = static_cast<unsigned char>(table);
  return criteria;
}

TCSectionFilterCriteriaHelper Filter(unsigned short pid, const std::string &match, std::vector<unsigned char> mask) {
  TCSectionFilterCriteriaHelper filter;
  filter.pid = pid;
  filter.match = Bytes(match);
  filter.mask = std::move(mask);
  return filter;
}

std::vector<std::string> Everything() {
  lumio::tv::Flush();
  return g_told.All();
}

// The service with all its subscriber objects.
class TvService : public testing::Test {
protected:
  TvService() {
    EXPECT_EQ(TVServiceAPI::CreateSignalSubscriber(OnSignal, &signal), 0);
    EXPECT_EQ(TVServiceAPI::CreateProgramSubscriber(OnProgram, &program), 0);
    EXPECT_EQ(TVServiceAPI::CreateSectionSubscriber(OnSection, PROFILE_MAIN, 0, &section), 0);
    EXPECT_EQ(TVServiceAPI::CreatePESDataSubscriber(PROFILE_MAIN, 0, &pes), 0);
    EXPECT_EQ(TVServiceAPI::CreateDataSubscriber(PROFILE_MAIN, 0, &caption), 0);
    EXPECT_EQ(TVServiceAPI::CreateDsm(OnDsm, &dsm), 0);
  }

  int AttachDsm(unsigned int &handle) {
    return dsm->Attach(handle, Bytes("dsm://1"), DSM_DATA_SERVICE_DATA_CAROUSEL, DSM_ATTACH_CACHED, g_first, true);
  }

  // Subscribes once to each kind and fills all handles.
  void SubscribeAll() {
    EXPECT_EQ(signal->Subscribe(SIGNAL_TYPE_LOCK, g_first, PROFILE_MAIN, 0), 1);
    EXPECT_EQ(program->SubscribeProgram({}, program_handle), 1);
    EXPECT_EQ(program->SubscribeProgramListPF(1, 0x123, SUBSCRIBE_TYPE_CHANGES, list_handle), 1);
    EXPECT_EQ(section->SubscribeByCriteria(77, Criteria(0x12, 'N'), section_handle), 1);
    EXPECT_EQ(pes->Subscribe(OnData<TSPESData>, g_first, &pes_handle), 1);
    EXPECT_EQ(caption->Subscribe(OnData<TSCaption>, g_second, &caption_handle), 1);
    EXPECT_EQ(AttachDsm(session), 1);
  }

  // Emits one notification to each subscription of SubscribeAll() and returns how many.
  int EmitAll() {
    return lumio::tv::EmitSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0, kLocked) +
           lumio::tv::EmitProgram(program_handle, PROGRAM_CHANGE_PRESENT, Programme("news")) +
           lumio::tv::EmitProgram(list_handle, PROGRAM_CHANGE_PRESENT, Programme("news")) +
           lumio::tv::EmitSection(0x12, Bytes("N")) + lumio::tv::EmitPes({}) + lumio::tv::EmitCaption({}) +
           lumio::tv::EmitDsm(Message(static_cast<int>(session)));
  }

  ISignalSubscriber *signal = nullptr;
  IProgramSubscriber *program = nullptr;
  ISectionSubscriber *section = nullptr;
  IPESDataSubscriber *pes = nullptr;
  IDataSubscriber *caption = nullptr;
  IDsm *dsm = nullptr;
  int program_handle = 0, list_handle = 0, section_handle = 0, pes_handle = 0, caption_handle = 0;
  unsigned int session = 0;
};

// Factories

TEST_F(TvService, FactoriesRefuseNullPointers) {
  EXPECT_EQ(TVServiceAPI::CreateSignalSubscriber(nullptr, &signal), -1);
  EXPECT_EQ(TVServiceAPI::CreateSignalSubscriber(OnSignal, nullptr), -1);
  EXPECT_EQ(TVServiceAPI::CreateProgramSubscriber(nullptr, &program), -1);
  EXPECT_EQ(TVServiceAPI::CreateProgramSubscriber(OnProgram, nullptr), -1);
  EXPECT_EQ(TVServiceAPI::CreateSectionSubscriber(nullptr, PROFILE_MAIN, 0, &section), -1);
  EXPECT_EQ(TVServiceAPI::CreateSectionSubscriber(OnSection, PROFILE_MAIN, 0, nullptr), -1);
  EXPECT_EQ(TVServiceAPI::CreatePESDataSubscriber(PROFILE_MAIN, 0, nullptr), -1);
  EXPECT_EQ(TVServiceAPI::CreateDataSubscriber(PROFILE_MAIN, 0, nullptr), -1);
  EXPECT_EQ(TVServiceAPI::CreateDsm(nullptr, &dsm), -1);
  EXPECT_EQ(TVServiceAPI::CreateDsm(OnDsm, nullptr), -1);
}

TEST_F(TvService, FactoriesReturnTheOneObjectOfTheirKind) {
  ISignalSubscriber *again = nullptr;
  EXPECT_EQ(TVServiceAPI::DestroySignalSubscriber(), 0);
  EXPECT_EQ(TVServiceAPI::CreateSignalSubscriber(OnSignal, &again), 0);
  EXPECT_EQ(again, signal);
}

TEST_F(TvService, CallsTheLastCallback) {
  SubscribeAll();
  TVServiceAPI::CreateSectionSubscriber([](bool, unsigned short, unsigned char *, int) { Tell("the other one"); },
                                        PROFILE_MAIN, 0, &section);
  lumio::tv::EmitSectionTo(section_handle, Bytes("N"));
  EXPECT_THAT(Everything(), ElementsAre("the other one"));
}

TEST_F(TvService, DestroyEndsTheSubscriptionsOfItsKind) {
  int (*const destroy[])() = {TVServiceAPI::DestroySignalSubscriber,  TVServiceAPI::DestroyProgramSubscriber,
                              TVServiceAPI::DestroySectionSubscriber, TVServiceAPI::DestroyPESDataSubscriber,
                              TVServiceAPI::DestroyDataSubscriber,    TVServiceAPI::DestroyDsm};
  SubscribeAll();
  for (const int kind : {0, 1, 2, 3, 4, 5}) {
    const auto count = [&] {
      const std::vector<Subscription> all = lumio::tv::Subscriptions();
      return std::count_if(all.begin(), all.end(), [&](auto &one) { return one.kind == static_cast<Kind>(kind); });
    };
    const std::size_t others = lumio::tv::Subscriptions().size() - count();
    EXPECT_GT(count(), 0);
    EXPECT_EQ(destroy[kind](), 0);
    EXPECT_EQ(count(), 0);
    EXPECT_THAT(lumio::tv::Subscriptions(), SizeIs(others)) << "the other kinds keep theirs";
  }
  EXPECT_EQ(EmitAll(), 0);
  EXPECT_THAT(Everything(), IsEmpty());
}

TEST_F(TvService, AnOldPointerStillWorksAfterDestroy) {
  SubscribeAll();
  TVServiceAPI::DestroySignalSubscriber();
  TVServiceAPI::DestroyProgramSubscriber();
  TVServiceAPI::DestroySectionSubscriber();
  TVServiceAPI::DestroyPESDataSubscriber();
  TVServiceAPI::DestroyDataSubscriber();
  TVServiceAPI::DestroyDsm();
  EXPECT_EQ(signal->Unsubscribe(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0), 0);
  EXPECT_EQ(pes->Unsubscribe(pes_handle), 0);
  SubscribeAll();
  EXPECT_EQ(EmitAll(), 7);
  EXPECT_THAT(Everything(), SizeIs(7));
}

// All operations

class TvServiceCall;

struct Call {
  const char *name;
  Operation operation;
  int success; // result of the operation unless it is refused
  int (*make)(TvServiceCall &);
};

class TvServiceCall : public TvService, public testing::WithParamInterface<Call> {
public:
  static std::vector<Call> All();
  static std::vector<Call> Factories();

protected:
  TvServiceCall() { SubscribeAll(); }

  int Make() { return GetParam().make(*this); }

  // Returns everything that a call could change.
  auto State() {
    std::vector<std::string> subscriptions;
    for (const Subscription &one : lumio::tv::Subscriptions()) {
      subscriptions.push_back(one.description);
    }
    return std::make_tuple(subscriptions, signal, program, section, pes, caption, dsm, program_handle, list_handle,
                           section_handle, pes_handle, caption_handle, session, monitoring_type);
  }

  EProgramMonitoringType monitoring_type = PROGRAM_MONITORING_NONE;
};

#define CALL(operation, success, expression)                                                                           \
  Call {                                                                                                               \
#operation, Operation::operation, success, []([[maybe_unused]] TvServiceCall & s) -> int { return expression; }    \
  }

std::vector<Call> TvServiceCall::All() {
  return {
      CALL(CreateSignalSubscriber, 0, TVServiceAPI::CreateSignalSubscriber(OnSignal, &s.signal)),
      CALL(DestroySignalSubscriber, 0, TVServiceAPI::DestroySignalSubscriber()),
      CALL(SubscribeSignal, 1, s.signal->Subscribe(SIGNAL_TYPE_STRENGTH, g_first, PROFILE_PIP, 1)),
      CALL(UnsubscribeSignal, 1, s.signal->Unsubscribe(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0)),
      CALL(CreateProgramSubscriber, 0, TVServiceAPI::CreateProgramSubscriber(OnProgram, &s.program)),
      CALL(DestroyProgramSubscriber, 0, TVServiceAPI::DestroyProgramSubscriber()),
      CALL(SubscribeProgram, 1, s.program->SubscribeProgram({}, s.program_handle)),
      CALL(UnsubscribeProgram, 1, s.program->UnsubscribeProgram(s.program_handle)),
      CALL(SubscribeProgramListPF, 1, s.program->SubscribeProgramListPF(0, 1, SUBSCRIBE_TYPE_ONCE, s.list_handle)),
      CALL(SubscribeProgramList, 1, s.program->SubscribeProgramList(0, 1, 2, 3, SUBSCRIBE_TYPE_ONCE, s.list_handle)),
      CALL(UnsubscribeProgramList, 1, s.program->UnsubscribeProgramList(s.list_handle)),
      CALL(GetMonitoringType, 1, s.program->GetMonitoringType(s.monitoring_type)),
      CALL(CreateSectionSubscriber, 0, TVServiceAPI::CreateSectionSubscriber(OnSection, PROFILE_PIP, 1, &s.section)),
      CALL(DestroySectionSubscriber, 0, TVServiceAPI::DestroySectionSubscriber()),
      CALL(SubscribeSectionByCriteria, 1, s.section->SubscribeByCriteria(1, {}, s.section_handle)),
      CALL(SubscribeSectionByFilter, 1, s.section->SubscribeByFilter(1, {}, s.section_handle)),
      CALL(UnsubscribeSection, 1, s.section->Unsubscribe(s.section_handle)),
      CALL(CreatePESDataSubscriber, 0, TVServiceAPI::CreatePESDataSubscriber(PROFILE_PIP, 1, &s.pes)),
      CALL(DestroyPESDataSubscriber, 0, TVServiceAPI::DestroyPESDataSubscriber()),
      CALL(SubscribePES, 1, s.pes->Subscribe(OnData<TSPESData>, nullptr, &s.pes_handle)),
      CALL(UnsubscribePES, 1, s.pes->Unsubscribe(s.pes_handle)),
      CALL(CreateDataSubscriber, 0, TVServiceAPI::CreateDataSubscriber(PROFILE_PIP, 1, &s.caption)),
      CALL(DestroyDataSubscriber, 0, TVServiceAPI::DestroyDataSubscriber()),
      CALL(SubscribeCaption, 1, s.caption->Subscribe(OnData<TSCaption>, nullptr, &s.caption_handle)),
      CALL(UnsubscribeCaption, 1, s.caption->Unsubscribe(s.caption_handle)),
      CALL(CreateDsm, 0, TVServiceAPI::CreateDsm(OnDsm, &s.dsm)),
      CALL(DestroyDsm, 0, TVServiceAPI::DestroyDsm()),
      CALL(AttachDsm, 1, s.AttachDsm(s.session)),
      CALL(DetachDsm, 1, s.dsm->Detach(s.session)),
  };
}

std::vector<Call> TvServiceCall::Factories() {
  std::vector<Call> calls = All();
  const auto end = std::remove_if(calls.begin(), calls.end(),
                                  [](const Call &call) { return std::string(call.name).find("Create") != 0; });
  calls.erase(end, calls.end());
  return calls;
}

std::string NameOf(const testing::TestParamInfo<Call> &call) { return call.param.name; }

INSTANTIATE_TEST_SUITE_P(All, TvServiceCall, testing::ValuesIn(TvServiceCall::All()), NameOf);

TEST_P(TvServiceCall, IsRefusedAsOftenAsPlannedAndChangesNothing) {
  const bool yes_or_no = GetParam().operation == Operation::GetMonitoringType;
  lumio::tv::RefuseNext(GetParam().operation, 42);
  lumio::tv::RefuseNext(GetParam().operation, 0);
  const auto before = State();
  EXPECT_EQ(Make(), yes_or_no ? 1 : 42);
  EXPECT_EQ(Make(), 0);
  EXPECT_EQ(State(), before);
  EXPECT_EQ(Make(), GetParam().success);
}

// A refused factory may even claim success without an object.
using TvServiceFactory = TvServiceCall;

INSTANTIATE_TEST_SUITE_P(All, TvServiceFactory, testing::ValuesIn(TvServiceCall::Factories()), NameOf);

TEST_P(TvServiceFactory, ReturnsNoObjectWhenRefused) {
  signal = nullptr, program = nullptr, section = nullptr, pes = nullptr, caption = nullptr, dsm = nullptr;
  const auto before = State();
  lumio::tv::RefuseNext(GetParam().operation, 0);
  EXPECT_EQ(Make(), 0);
  EXPECT_EQ(State(), before);
  EXPECT_EQ(Make(), 0);
  EXPECT_NE(State(), before);
}

TEST_P(TvServiceCall, ReturnsAfterThePlannedAction) {
  int times = 0;
  decltype(State()) meanwhile;
  lumio::tv::DuringNext(GetParam().operation, [&] {
    ++times;
    meanwhile = State();
  });
  EXPECT_EQ(Make(), GetParam().success);
  EXPECT_EQ(times, 1);
  EXPECT_EQ(meanwhile, State()) << "it has taken effect by then";
  Make();
  EXPECT_EQ(times, 1);
}

TEST_F(TvService, AnAnswerMayBeLate) {
  std::promise<void> begun, released;
  std::atomic<bool> answered{false};
  lumio::tv::DuringNext(Operation::UnsubscribeSection, [&] {
    begun.set_value();
    released.get_future().wait();
  });
  lumio::tv::RefuseNext(Operation::UnsubscribeSection, -5);
  std::future<int> answer = std::async(std::launch::async, [&] {
    const int result = section->Unsubscribe(1);
    answered = true;
    return result;
  });
  begun.get_future().wait();
  EXPECT_EQ(section->Unsubscribe(1), 0) << "another call is not held up";
  EXPECT_FALSE(answered);
  released.set_value();
  EXPECT_EQ(answer.get(), -5);
}

TEST_F(TvService, ANotificationMayArriveInTheMiddleOfASubscribeCall) {
  std::vector<std::string> meanwhile;
  lumio::tv::DuringNext(Operation::SubscribeSignal, [&] {
    lumio::tv::EmitSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0, kLocked);
    meanwhile = Everything();
  });
  signal->Subscribe(SIGNAL_TYPE_LOCK, g_first, PROFILE_MAIN, 0);
  EXPECT_THAT(meanwhile, ElementsAre("signal 0 1 0 is 1 50 for first"));
}

TEST_F(TvService, HandlesArePositiveAndDifferBetweenAllKinds) {
  std::set<int> handles;
  for (int round = 0; round < 10; ++round) {
    SubscribeAll();
    const int added[] = {program_handle, list_handle,    section_handle,
                         pes_handle,     caption_handle, static_cast<int>(session)};
    handles.insert(std::begin(added), std::end(added));
    program->UnsubscribeProgram(program_handle); // handles are not reused
  }
  EXPECT_THAT(handles, SizeIs(60));
  EXPECT_GT(*handles.begin(), 0);
}

// Signals

TEST_F(TvService, ReportsASignalOnlyToItsSubscription) {
  signal->Subscribe(SIGNAL_TYPE_STRENGTH, g_first, PROFILE_PIP, 3);
  signal->Subscribe(SIGNAL_TYPE_STRENGTH, g_second, PROFILE_PIP, 4);
  EXPECT_EQ(lumio::tv::EmitSignal(SIGNAL_TYPE_STRENGTH, PROFILE_PIP, 3, {70, 80}), 1);
  EXPECT_EQ(lumio::tv::EmitSignal(SIGNAL_TYPE_STRENGTH, PROFILE_PIP, 4, {71, 81}), 1);
  EXPECT_EQ(lumio::tv::EmitSignal(SIGNAL_TYPE_LOCK, PROFILE_PIP, 3, kLocked), 0);
  EXPECT_EQ(lumio::tv::EmitSignal(SIGNAL_TYPE_STRENGTH, PROFILE_MAIN, 3, kLocked), 0);
  EXPECT_EQ(lumio::tv::EmitSignal(SIGNAL_TYPE_STRENGTH, PROFILE_PIP, 5, kLocked), 0);
  EXPECT_THAT(Everything(), ElementsAre("signal 5 2 3 is 70 80 for first", "signal 5 2 4 is 71 81 for second"));
}

TEST_F(TvService, SubscribingASignalAgainReplacesItsUserData) {
  signal->Subscribe(SIGNAL_TYPE_LOCK, g_first, PROFILE_MAIN, 0);
  signal->Subscribe(SIGNAL_TYPE_LOCK, g_second, PROFILE_MAIN, 0);
  EXPECT_EQ(lumio::tv::EmitSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0, kLocked), 1);
  EXPECT_THAT(Everything(), ElementsAre("signal 0 1 0 is 1 50 for second"));
  EXPECT_EQ(signal->Unsubscribe(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0), 1);
  EXPECT_EQ(lumio::tv::EmitSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0, kLocked), 0);
  EXPECT_EQ(signal->Unsubscribe(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0), 0) << "it is gone already";
}

// Programmes

TEST_F(TvService, ReportsAProgrammeToOneSubscription) {
  int item = 0, list = 0, pf = 0;
  EXPECT_EQ(program->SubscribeProgram({}, item), 1);
  EXPECT_EQ(program->SubscribeProgramList(1, 2, 3, 4, SUBSCRIBE_TYPE_ONCE, list), 1);
  EXPECT_EQ(program->SubscribeProgramListPF(1, 2, SUBSCRIBE_TYPE_CHANGES, pf), 1);
  EXPECT_EQ(lumio::tv::EmitProgram(list, PROGRAM_CHANGE_LIST, Programme("news"), 6), 1);
  EXPECT_EQ(lumio::tv::EmitProgram(item, PROGRAM_CHANGE_PRESENT, Programme("film")), 1);
  EXPECT_EQ(lumio::tv::EmitProgram(pf, PROGRAM_CHANGE_FOLLOWING, Programme("show"), 1), 1);
  EXPECT_EQ(lumio::tv::EmitProgram(pf + 100, PROGRAM_CHANGE_FOLLOWING, Programme("nothing")), 0);
  EXPECT_THAT(Everything(),
              ElementsAre("programme 2 news 6 " + std::to_string(list), "programme 0 film 0 " + std::to_string(item),
                          "programme 1 show 1 " + std::to_string(pf)));
}

TEST_F(TvService, ProgrammesAndListsHaveTheirOwnUnsubscribe) {
  SubscribeAll();
  EXPECT_EQ(program->UnsubscribeProgram(list_handle), 0);
  EXPECT_EQ(program->UnsubscribeProgramList(program_handle), 0);
  EXPECT_EQ(program->UnsubscribeProgram(program_handle), 1);
  EXPECT_EQ(program->UnsubscribeProgramList(list_handle), 1);
  EXPECT_EQ(program->UnsubscribeProgram(program_handle), 0);
  EXPECT_EQ(program->UnsubscribeProgramList(list_handle), 0);
  EXPECT_EQ(lumio::tv::EmitProgram(program_handle, PROGRAM_CHANGE_PRESENT, {}), 0);
}

TEST_F(TvService, KeepsTheProgrammesItReported) {
  SubscribeAll();
  for (const int i : {0, 1, 2}) {
    lumio::tv::EmitProgram(program_handle, PROGRAM_CHANGE_PRESENT, Programme("programme " + std::to_string(i)));
  }
  lumio::tv::Shutdown();
  TVServiceAPI::DestroyProgramSubscriber();
  ASSERT_THAT(g_programs, SizeIs(3));
  for (const int i : {0, 1, 2}) {
    EXPECT_EQ(g_programs[i]->title, "programme " + std::to_string(i));
  }
}

TEST_F(TvService, ReportsItsMonitoringType) {
  EProgramMonitoringType type = PROGRAM_MONITORING_NONE;
  EXPECT_TRUE(program->GetMonitoringType(type));
  EXPECT_EQ(type, PROGRAM_MONITORING_PRESENT_FOLLOWING);
  lumio::tv::SetMonitoringType(PROGRAM_MONITORING_SCHEDULE);
  EXPECT_TRUE(program->GetMonitoringType(type));
  EXPECT_EQ(type, PROGRAM_MONITORING_SCHEDULE);
}

// Sections

TEST_F(TvService, DeliversASectionByCriteria) {
  int handle = 0;
  section->SubscribeByCriteria(-77, Criteria(0x12, 'N'), handle);
  section->SubscribeByCriteria(78, Criteria(0x13, 'N'), handle);
  section->SubscribeByCriteria(79, Criteria(0x12, 'O'), handle);
  section->SubscribeByCriteria(80, Criteria(0x12, 'N'), handle);
  EXPECT_EQ(lumio::tv::EmitSection(0x12, Bytes("NIT")), 2);
  EXPECT_EQ(lumio::tv::EmitSection(0x14, Bytes("NIT")), 0);
  EXPECT_THAT(Everything(), ElementsAre("section 1 NIT -77", "section 1 NIT 80"));
}

TEST_F(TvService, DeliversASectionByFilter) {
  int handle = 0;
  section->SubscribeByFilter(1, Filter(0x12, "ab", {0xff, 0xff}), handle);
  section->SubscribeByFilter(2, Filter(0x12, "a?", {0xff, 0x00}), handle);
  section->SubscribeByFilter(3, Filter(0x12, "ab", {}), handle);             // without a mask all bits count
  section->SubscribeByFilter(4, Filter(0x12, "AB", {0xdf, 0xdf}), handle);   // letters of either case
  section->SubscribeByFilter(5, Filter(0x12, "ab??", {0, 0, 0, 0}), handle); // at least four bytes
  section->SubscribeByFilter(6, Filter(0x12, "", {}), handle);
  section->SubscribeByFilter(7, Filter(0x13, "", {}), handle);
  EXPECT_EQ(lumio::tv::EmitSection(0x12, Bytes("abc")), 5);
  EXPECT_EQ(lumio::tv::EmitSection(0x12, Bytes("axcd")), 3);
  EXPECT_THAT(Everything(), ElementsAre("section 1 abc 1", "section 1 abc 2", "section 1 abc 3", "section 1 abc 4",
                                        "section 1 abc 6", "section 1 axcd 2", "section 1 axcd 5", "section 1 axcd 6"));
}

TEST_F(TvService, DeliversASectionToOneSubscription) {
  SubscribeAll();
  EXPECT_EQ(lumio::tv::EmitSectionTo(section_handle, Bytes("whatever"), false), 1);
  EXPECT_EQ(lumio::tv::EmitSectionTo(section_handle + 100, Bytes("whatever")), 0);
  EXPECT_EQ(lumio::tv::EmitSection(0x12, Bytes("N"), false), 1);
  EXPECT_THAT(Everything(), ElementsAre("section 0 whatever 77", "section 0 N 77"));
  EXPECT_EQ(section->Unsubscribe(section_handle), 1);
  EXPECT_EQ(section->Unsubscribe(section_handle), 0);
  EXPECT_EQ(lumio::tv::EmitSectionTo(section_handle, Bytes("whatever")), 0);
}

TEST_F(TvService, DeliversOnlySectionsOfAValidSize) {
  SubscribeAll();
  EXPECT_EQ(lumio::tv::EmitSectionTo(section_handle, {}), 0);
  EXPECT_EQ(lumio::tv::EmitSection(0x12, {}), 0);
  EXPECT_EQ(lumio::tv::EmitSectionTo(section_handle, std::vector<unsigned char>(4097, 'N')), 0);
  EXPECT_EQ(lumio::tv::EmitSection(0x12, std::vector<unsigned char>(4097, 'N')), 0);
  EXPECT_EQ(lumio::tv::EmitSection(0x12, std::vector<unsigned char>(4096, 'N')), 1);
  EXPECT_THAT(Everything(), ElementsAre("section 1 " + std::string(4096, 'N') + " 77"));
}

// PES packets and captions

template <class Interface, class Data> struct DataKind {
  using Subscriber = Interface;
  using Notification = Data;
};
using Packets = DataKind<IPESDataSubscriber, TSPESData>;
using Captions = DataKind<IDataSubscriber, TSCaption>;

template <class Kind> class TvServiceData : public TvService {
protected:
  using Data = typename Kind::Notification;

  typename Kind::Subscriber &Subscriber() {
    if constexpr (std::is_same_v<Kind, Packets>) {
      return *pes;
    } else {
      return *caption;
    }
  }

  int Emit(const char *payload) {
    Data data;
    data.payload = Bytes(payload);
    data.pts = 90000;
    if constexpr (std::is_same_v<Kind, Packets>) {
      return lumio::tv::EmitPes(data);
    } else {
      return lumio::tv::EmitCaption(data);
    }
  }
};
using DataKinds = testing::Types<Packets, Captions>;
TYPED_TEST_SUITE(TvServiceData, DataKinds);

TYPED_TEST(TvServiceData, ReachEverySubscription) {
  const auto on_data = OnData<typename TestFixture::Data>;
  auto &subscriber = this->Subscriber();
  int first = 0, second = 0;
  EXPECT_EQ(this->Emit("nobody"), 0);
  EXPECT_EQ(subscriber.Subscribe(on_data, g_first, &first), 1);
  EXPECT_EQ(subscriber.Subscribe(on_data, g_second, &second), 1);
  EXPECT_EQ(this->Emit("both"), 2);
  EXPECT_EQ(this->Emit("again"), 2);
  lumio::tv::Flush();
  EXPECT_EQ(subscriber.Unsubscribe(first), 1);
  EXPECT_EQ(subscriber.Unsubscribe(first), 0);
  EXPECT_EQ(this->Emit("second"), 1);
  EXPECT_THAT(Everything(),
              ElementsAre("data both 90000 for first", "data both 90000 for second", "data again 90000 for first",
                          "data again 90000 for second", "data second 90000 for second"));
}

TYPED_TEST(TvServiceData, RefuseNullPointers) {
  int handle = 42;
  EXPECT_EQ(this->Subscriber().Subscribe(nullptr, g_first, &handle), 0);
  EXPECT_EQ(this->Subscriber().Subscribe(OnData<typename TestFixture::Data>, g_first, nullptr), 0);
  EXPECT_EQ(handle, 42);
  EXPECT_THAT(lumio::tv::Subscriptions(), IsEmpty());
}

// DSM sessions

TEST_F(TvService, DeliversAMessageToItsSession) {
  unsigned int first = 0, second = 0;
  AttachDsm(first);
  AttachDsm(second);
  {
    const std::string bytes = "gone after the emission";
    EXPECT_EQ(lumio::tv::EmitDsm(Message(static_cast<int>(second), bytes.c_str())), 1);
  }
  EXPECT_EQ(lumio::tv::EmitDsm(Message(static_cast<int>(first))), 1);
  EXPECT_EQ(lumio::tv::EmitDsm(Message(static_cast<int>(second) + 100)), 0);
  EXPECT_THAT(Everything(), ElementsAre("message 1 2 3 4 of " + std::to_string(second) + " gone after the emission",
                                        "message 1 2 3 4 of " + std::to_string(first) + " "));
  EXPECT_EQ(dsm->Detach(first), 1);
  EXPECT_EQ(dsm->Detach(first), 0);
  EXPECT_EQ(lumio::tv::EmitDsm(Message(static_cast<int>(first))), 0);
}

// Delivery

TEST_F(TvService, ListsWhoHoldsWhichSubscription) {
  EXPECT_THAT(lumio::tv::Subscriptions(), IsEmpty());
  SubscribeAll();
  section->SubscribeByFilter(0x1234, Filter(0x11, "@", {0xf0}), section_handle);
  program->SubscribeProgramList(1, 0x2b, 3, 4, SUBSCRIBE_TYPE_ONCE, list_handle);
  EmitAll();
  lumio::tv::EmitSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0, kLocked);
  lumio::tv::Flush();

  std::vector<std::string> lines;
  for (const Subscription &one : lumio::tv::Subscriptions()) {
    std::ostringstream line;
    line << static_cast<int>(one.kind) << ": " << one.description;
    if (one.userData) {
      line << " for " << static_cast<char *>(one.userData);
    }
    line << ", " << one.delivered;
    lines.push_back(line.str());
  }
  EXPECT_THAT(lines, ElementsAre("0: type 0, profile 1, screen 0 for first, 2", "1: programme 0 of service 0, 1",
                                 "1: present and following of service 0x123, arg 1, type 1, 0",
                                 "1: list 3, 4 of service 0x2b, arg 1, type 0, 1",
                                 "2: key 0x4d, pid 0x12, first bytes 4e under mask ff, 1",
                                 "2: key 0x1234, pid 0x11, first bytes 40 under mask f0, 0",
                                 "3: of the current service for first, 1", "4: of the current service for second, 1",
                                 "5: target \"dsm://1\", service type 1, attach type 1, flag 1 for first, 1"));
  const std::vector<Subscription> all = lumio::tv::Subscriptions();
  EXPECT_EQ(all[5].handle, section_handle);
  EXPECT_EQ(all[8].handle, static_cast<int>(session));
}

std::set<std::thread::id> g_threads[2]; // of the callbacks for packets and for captions

TEST_F(TvService, EachKindHasAThreadOfItsOwn) {
  int handle = 0;
  pes->Subscribe([](TSPESData &, void *) { g_threads[0].insert(std::this_thread::get_id()); }, nullptr, &handle);
  caption->Subscribe([](TSCaption &, void *) { g_threads[1].insert(std::this_thread::get_id()); }, nullptr, &handle);
  for (int i = 0; i < 10; ++i) {
    lumio::tv::EmitPes({});
    lumio::tv::EmitCaption({});
  }
  lumio::tv::Flush();
  EXPECT_THAT(g_threads[0], SizeIs(1));
  EXPECT_THAT(g_threads[1], SizeIs(1));
  EXPECT_NE(g_threads[0], g_threads[1]);
  EXPECT_EQ(g_threads[0].count(std::this_thread::get_id()), 0U);
  EXPECT_EQ(g_threads[1].count(std::this_thread::get_id()), 0U);
}

// Blocks the thread of the sections in a callback.
class SectionThreadHeldUp {
public:
  explicit SectionThreadHeldUp(ISectionSubscriber &section) {
    section.SubscribeByCriteria(0, Criteria(0xfff, 'H'), handle_);
    g_on_section = [this] {
      begun_.set_value();
      released_.get_future().wait();
    };
    lumio::tv::EmitSection(0xfff, Bytes("H"));
    begun_.get_future().wait();
  }

  int Handle() const { return handle_; }

  void Release() {
    released_.set_value();
    lumio::tv::Flush();
  }

private:
  int handle_ = 0;
  std::promise<void> begun_, released_;
};

TEST_F(TvService, SkipsASubscriptionThatHasEnded) {
  SubscribeAll();
  SectionThreadHeldUp held_up(*section);
  EXPECT_EQ(lumio::tv::EmitSection(0x12, Bytes("N")), 1);
  EXPECT_EQ(section->Unsubscribe(section_handle), 1);
  EXPECT_EQ(section->Unsubscribe(held_up.Handle()), 1) << "nor does anyone wait for a callback that runs";
  SubscribeAll(); // a later subscription to the same thing is a new one
  held_up.Release();
  EXPECT_THAT(Everything(), ElementsAre("section 1 H 0"));
}

TEST_F(TvService, SkipsALaterSubscription) {
  SectionThreadHeldUp held_up(*section);
  EXPECT_EQ(lumio::tv::EmitSection(0x12, Bytes("N")), 0);
  SubscribeAll();
  held_up.Release();
  EXPECT_THAT(Everything(), ElementsAre("section 1 H 0"));
}

std::promise<void> g_begun, g_released;

TEST_F(TvService, ANewSignalSubscriptionMissesEarlierSignals) {
  // The callback of the first signal blocks the thread of the signals.
  TVServiceAPI::CreateSignalSubscriber(
      [](ESignalType type, EProfile, unsigned short, TSSignalData, void *user_data) {
        if (type == SIGNAL_TYPE_SCRAMBLED) {
          g_begun.set_value();
          g_released.get_future().wait();
        }
        Tell(type, static_cast<char *>(user_data));
        return 0;
      },
      &signal);
  signal->Subscribe(SIGNAL_TYPE_SCRAMBLED, g_first, PROFILE_MAIN, 0);
  signal->Subscribe(SIGNAL_TYPE_LOCK, g_first, PROFILE_MAIN, 0);
  lumio::tv::EmitSignal(SIGNAL_TYPE_SCRAMBLED, PROFILE_MAIN, 0, {});
  g_begun.get_future().wait();
  EXPECT_EQ(lumio::tv::EmitSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0, {}), 1);
  signal->Unsubscribe(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0);
  signal->Subscribe(SIGNAL_TYPE_LOCK, g_second, PROFILE_MAIN, 0);
  g_released.set_value();
  EXPECT_THAT(Everything(), ElementsAre("4 first"));
}

// Callers unsubscribe while they hold a lock that their callback takes, too.
TEST_F(TvService, NoOperationWaitsForACallback) {
  SubscribeAll();
  SectionThreadHeldUp held_up(*section);
  EXPECT_EQ(EmitAll(), 7);
  EXPECT_EQ(TVServiceAPI::CreateSectionSubscriber(OnSection, PROFILE_MAIN, 0, &section), 0);
  EXPECT_EQ(section->SubscribeByFilter(1, {}, section_handle), 1);
  EXPECT_EQ(section->Unsubscribe(section_handle), 1);
  EXPECT_THAT(lumio::tv::Subscriptions(), SizeIs(8));
  EXPECT_EQ(TVServiceAPI::DestroySectionSubscriber(), 0);
  held_up.Release();
}

TEST_F(TvService, EveryOperationMayBeCalledInACallback) {
  SubscribeAll();
  std::vector<int> results;
  g_on_section = [&] {
    results.push_back(section->Unsubscribe(section_handle));
    results.push_back(section->SubscribeByCriteria(5, Criteria(0x12, 'M'), section_handle));
    results.push_back(signal->Unsubscribe(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0));
    results.push_back(dsm->Detach(session));
    results.push_back(TVServiceAPI::CreateSectionSubscriber(OnSection, PROFILE_MAIN, 0, &section));
    results.push_back(lumio::tv::EmitSection(0x12, Bytes("M")));
    lumio::tv::Flush();
  };
  lumio::tv::EmitSection(0x12, Bytes("N"));
  EXPECT_THAT(Everything(), testing::Contains("section 1 N 77"));
  lumio::tv::Flush();
  EXPECT_THAT(Everything(), testing::Contains("section 1 M 5"));
  EXPECT_THAT(results, ElementsAre(1, 1, 1, 1, 0, 1));
}

// The end

std::atomic<int> g_ends{0};

TEST_F(TvService, ShutdownDeliversAndJoins) {
  int handle = 0;
  pes->Subscribe(
      [](TSPESData &, void *) {
        EndOfThread::Watch(g_ends);
        Tell("packet");
      },
      nullptr, &handle);
  caption->Subscribe([](TSCaption &, void *) { EndOfThread::Watch(g_ends); }, nullptr, &handle);
  for (int i = 0; i < 100; ++i) {
    lumio::tv::EmitPes({});
  }
  lumio::tv::EmitCaption({});
  lumio::tv::Shutdown();
  EXPECT_THAT(g_told.All(), SizeIs(100));
  EXPECT_EQ(g_ends, 2);

  lumio::tv::EmitPes({});
  lumio::tv::Shutdown();
  EXPECT_THAT(Everything(), SizeIs(100));
  EXPECT_EQ(caption->Unsubscribe(handle), 1) << "operations still answer";
  EXPECT_EQ(TVServiceAPI::DestroyPESDataSubscriber(), 0);
}

// The process waits at exit for the callback that is running, and drops what has not begun.
void ExitWhileACallbackRuns(IPESDataSubscriber &pes) {
  static std::atomic<bool> exiting{false};
  int handle = 0;
  pes.Subscribe(
      [](TSPESData &, void *) {
        g_begun.set_value();
        while (!exiting) {
          std::this_thread::yield();
        }
        std::fputs("the callback ended\n", stderr);
      },
      nullptr, &handle);
  lumio::tv::EmitPes({});
  g_begun.get_future().wait();
  lumio::tv::EmitPes({});
  // Runs before anything that existed at the first use of the service is destroyed.
  std::atexit([] { exiting = true; });
  std::exit(0);
}

using TvServiceDeathTest = TvService;

TEST_F(TvServiceDeathTest, IsJoinedWhenTheProcessExits) {
  EXPECT_EXIT(ExitWhileACallbackRuns(*pes), testing::ExitedWithCode(0), "^the callback ended\n$");
}

// Many threads

constexpr int kThreads = 4;
constexpr int kEach = 1000;

// The next number expected from each thread, used by one thread of the service until it ends.
struct Arrivals {
  int next[kThreads] = {};
  int disorder = 0;

  void Add(int thread, int number) { disorder += number != next[thread]++; }
};
Arrivals g_arrivals[6];

int ArrivedSignal(ESignalType, EProfile, unsigned short, TSSignalData data, void *) {
  g_arrivals[0].Add(data.extra, data.value);
  return 0;
}
void ArrivedProgram(EProgramChangeType, TCProgramData *data, int thread, int) {
  g_arrivals[1].Add(thread, static_cast<int>(data->duration));
}
void ArrivedSection(bool, unsigned short, unsigned char *bytes, int) {
  g_arrivals[2].Add(bytes[1], bytes[2] * 256 + bytes[3]);
}
template <int kind, class Data> void ArrivedData(Data &data, void *) {
  g_arrivals[kind].Add(data.payload[0], static_cast<int>(data.pts));
}
void ArrivedDsm(TSDsmMessage &message) { g_arrivals[5].Add(message.moduleId, message.version); }

TEST_F(TvService, LosesAndReordersNothingFromManyThreads) {
  TVServiceAPI::CreateSignalSubscriber(ArrivedSignal, &signal);
  TVServiceAPI::CreateProgramSubscriber(ArrivedProgram, &program);
  TVServiceAPI::CreateSectionSubscriber(ArrivedSection, PROFILE_MAIN, 0, &section);
  TVServiceAPI::CreateDsm(ArrivedDsm, &dsm);
  signal->Subscribe(SIGNAL_TYPE_LOCK, nullptr, PROFILE_MAIN, 0);
  program->SubscribeProgram({}, program_handle);
  section->SubscribeByCriteria(0, Criteria(0x12, 'N'), section_handle);
  pes->Subscribe(ArrivedData<3, TSPESData>, nullptr, &pes_handle);
  caption->Subscribe(ArrivedData<4, TSCaption>, nullptr, &caption_handle);
  AttachDsm(session);

  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([this, thread] {
      const auto thread_byte = static_cast<unsigned char>(thread);
      for (int i = 0; i < kEach; ++i) {
        TCProgramData data;
        data.duration = static_cast<unsigned int>(i);
        TSPESData packet;
        TSCaption text;
        packet.pts = text.pts = static_cast<unsigned int>(i);
        packet.payload = text.payload = {thread_byte};
        lumio::tv::EmitSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0, {i, thread});
        lumio::tv::EmitProgram(program_handle, PROGRAM_CHANGE_PRESENT, data, thread);
        lumio::tv::EmitSection(
            0x12, {'N', thread_byte, static_cast<unsigned char>(i / 256), static_cast<unsigned char>(i % 256)});
        lumio::tv::EmitPes(packet);
        lumio::tv::EmitCaption(text);
        lumio::tv::EmitDsm({0, 0, i, static_cast<int>(session), thread, 0, nullptr});
      }
    });
  }
  // Other subscriptions come and go meanwhile.
  for (int i = 0; i < kEach; ++i) {
    int handle = 0;
    signal->Subscribe(SIGNAL_TYPE_STRENGTH, nullptr, PROFILE_MAIN, 0);
    lumio::tv::EmitSignal(SIGNAL_TYPE_STRENGTH, PROFILE_PIP, 0, {});
    signal->Unsubscribe(SIGNAL_TYPE_STRENGTH, PROFILE_MAIN, 0);
    section->SubscribeByCriteria(0, Criteria(0x13, 'N'), handle);
    section->Unsubscribe(handle);
    pes->Subscribe([](TSPESData &, void *) {}, nullptr, &handle);
    pes->Unsubscribe(handle);
    lumio::tv::Subscriptions();
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  lumio::tv::Shutdown();
  for (const Arrivals &arrivals : g_arrivals) {
    EXPECT_THAT(arrivals.next, testing::Each(kEach));
    EXPECT_EQ(arrivals.disorder, 0);
  }
}

} // namespace
