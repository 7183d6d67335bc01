// PES and caption subscriptions: one at the TV service, and a set of module names in the library.
#include <TVServiceSubscriber.h>
#include <lumio-host/testing.h>

#include <gmock/gmock.h>

#include <functional>
#include <thread>
#include <tuple>

#include "fake_dlog.h"
#include "fake_ecore_post.h"
#include "fake_kestrel.h"
#include "fake_tv_service.h"
#include "modules_called.h"
#include "short_memory.h"

using lumio::testing::WaitForServices;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using Module = CTVServiceSubscriber;

// What distinguishes the two streams.
struct Pes {
  using Data = TSPESData;
  using Callback = Module::PesCallback;
  using Event = TPesEvent;
  static constexpr char kWord[] = "pes";
  static constexpr char kCreate[] = "CreatePESDataSubscriber";
  static constexpr char kDropped[] = "16 No PES subscriptions !!";
  static constexpr const char *kFunctions[] = {"t_PesDataCallback", "UnsubscribePES", "SubscribePES"};
  static constexpr int kIndex = 3;

  static bool Subscribe(Module &module, Callback cb, void *user_data) { return module.SubscribePES(cb, user_data); }
  static bool Unsubscribe(Module &module) { return module.UnsubscribePES(); }
  static void Notify(Data &data, void *user_data) { Module::t_PesDataCallback(data, user_data); }
  static std::set<std::string> *&Names() { return Module::m_pPesSubscriptions; }
  static int &Handle() { return Module::m_pesSubscriptionHandle; }
  static IPESDataSubscriber *&Service() { return Module::m_pPESDataSubscriber; }
  static IPESDataSubscriber *FakeService() { return FakePesSubscriber(); }
  static Callback CallbackOf(const Module &copy) { return copy.m_pesCallback; }
  static bool GaveTheLibrarysCallback() { return fake_tv_service.on_pes == Module::t_PesDataCallback; }
  static auto Members(Data &data) { return std::tie(data.pid, data.streamId, data.pts, data.payload); }
  static Data Filled() {
    Data data;
    Members(data) = std::tuple(0x1ffe, 0xbd, 0x1ffffffffULL, std::vector<unsigned char>{1, 2, 3});
    return data;
  }
};

struct Caption {
  using Data = TSCaption;
  using Callback = Module::CaptionCallback;
  using Event = TCaptionEvent;
  static constexpr char kWord[] = "caption";
  static constexpr char kCreate[] = "CreateDataSubscriber";
  static constexpr char kDropped[] = "16 No Caption subscriptions !!";
  static constexpr const char *kFunctions[] = {"t_CaptionCallback", "UnsubscribeCaption", "SubscribeCaption"};
  static constexpr int kIndex = 4;

  static bool Subscribe(Module &module, Callback cb, void *user_data) { return module.SubscribeCaption(cb, user_data); }
  static bool Unsubscribe(Module &module) { return module.UnsubscribeCaption(); }
  static void Notify(Data &data, void *user_data) { Module::t_CaptionCallback(data, user_data); }
  static std::set<std::string> *&Names() { return Module::m_pCaptionSubscriptions; }
  static int &Handle() { return Module::m_captionSubscriptionHandle; }
  static IDataSubscriber *&Service() { return Module::m_pCaptionSubscriber; }
  static IDataSubscriber *FakeService() { return FakeCaptionSubscriber(); }
  static Callback CallbackOf(const Module &copy) { return copy.m_captionCallback; }
  static bool GaveTheLibrarysCallback() { return fake_tv_service.on_caption == Module::t_CaptionCallback; }
  static auto Members(Data &data) { return std::tie(data.language, data.pts, data.payload); }
  static Data Filled() {
    Data data;
    Members(data) = std::tuple(0x676572, 0x1ffffffffULL, std::vector<unsigned char>{1, 2, 3});
    return data;
  }
};

struct Call {
  char module;
  const void *data; // address
  unsigned long long pts;
  std::vector<unsigned char> payload;
  void *user_data;
  bool lock_held;
  std::thread::id thread;
};

std::vector<Call> g_calls;
std::function<void()> g_during;

template <class Data, char kName> void OnData(Data &data, void *user_data) {
  g_calls.push_back({kName, &data, data.pts, data.payload, user_data, AnyLockHeld(), std::this_thread::get_id()});
  ++data.pts;
  if (const std::function<void()> during = g_during) {
    during();
  }
}

template <class Stream> class TvsStream : public testing::Test {
protected:
  using Data = typename Stream::Data;

  ~TvsStream() override {
    g_during = nullptr;
    Module::ReleaseAll();
  }

  template <char kName> static bool Subscribe(Module &module, void *user_data = nullptr) {
    return Stream::Subscribe(module, OnData<Data, kName>, user_data);
  }

  static Module *CopyOf(const char *name) { return Module::m_GetSubscriber(name, Stream::kWord); }

  // "pes.Subscribe(...)" for a call of "Subscribe(...)".
  static std::string Service(const char *call) { return Stream::kWord + std::string(".") + call; }

  // Replaces "%" by the stream's word.
  static std::string Message(std::string message) { return message.replace(message.find('%'), 1, Stream::kWord); }

  static void Notify(unsigned long long pts = 0) {
    Data data;
    data.pts = pts;
    Stream::Notify(data, nullptr);
  }

  int a_ = 0, b_ = 0; // user data
};

using Streams = testing::Types<Pes, Caption>;
TYPED_TEST_SUITE(TvsStream, Streams);

// --- Subscribing ---

TYPED_TEST(TvsStream, FirstSubscriptionSetsUpTheServiceAndAsksIt) {
  Module::m_profile = PROFILE_PIP;
  Module::m_group = 4;
  Module module("mod");
  EXPECT_TRUE(this->template Subscribe<'a'>(module, &this->a_));
  EXPECT_THAT(ServiceCalls(),
              ElementsAre(TypeParam::kCreate + std::string("(2, 4) locked"), this->Service("Subscribe(0) locked")));
  EXPECT_TRUE(TypeParam::GaveTheLibrarysCallback());
  EXPECT_EQ(TypeParam::Service(), TypeParam::FakeService());
  EXPECT_EQ(TypeParam::Handle(), 100);
  EXPECT_THAT(*TypeParam::Names(), ElementsAre("mod"));
  EXPECT_THAT(LogMessagesWithLock(), ElementsAre("2 subscription success : mod locked"));
  EXPECT_THAT(LockCalls(), ElementsAre("Create", "Lock", "Unlock"));
}

TYPED_TEST(TvsStream, SubscriptionWritesCallbackAndUserDataIntoTheCopy) {
  Module module("mod");
  this->template Subscribe<'a'>(module, &this->a_);
  const Module *copy = this->CopyOf("mod");
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(TypeParam::CallbackOf(*copy), (OnData<typename TypeParam::Data, 'a'>));
  EXPECT_EQ(copy->m_pUserData, &this->a_);
  EXPECT_EQ(TypeParam::CallbackOf(module), nullptr) << "the module's own object does not change";
  EXPECT_EQ(module.m_pUserData, nullptr);
}

TYPED_TEST(TvsStream, IsSetUpBeforeTheServiceIsAsked) {
  int asked = 0;
  Module module("mod");
  fake_tv_service.during[this->Service("Subscribe")] = [&] {
    ++asked;
    EXPECT_EQ(TypeParam::CallbackOf(*this->CopyOf("mod")), (OnData<typename TypeParam::Data, 'a'>));
    EXPECT_EQ(this->CopyOf("mod")->m_pUserData, &this->a_);
    ASSERT_NE(TypeParam::Names(), nullptr);
    EXPECT_THAT(*TypeParam::Names(), IsEmpty());
  };
  this->template Subscribe<'a'>(module, &this->a_);
  EXPECT_EQ(asked, 1);
}

TYPED_TEST(TvsStream, FurtherModulesOnlyAddTheirNames) {
  Module a("a"), b("b");
  this->template Subscribe<'b'>(b);
  ClearServiceCalls();
  ClearLog();
  EXPECT_TRUE(this->template Subscribe<'a'>(a));
  EXPECT_THAT(ServiceCalls(), IsEmpty());
  EXPECT_THAT(*TypeParam::Names(), ElementsAre("a", "b"));
  EXPECT_THAT(LogMessages(), ElementsAre("2 subscription success : a"));
}

TYPED_TEST(TvsStream, RepeatedSubscriptionReplacesCallbackAndUserData) {
  Module module("mod");
  this->template Subscribe<'a'>(module, &this->a_);
  EXPECT_TRUE(this->template Subscribe<'b'>(module, &this->b_));
  EXPECT_THAT(*TypeParam::Names(), SizeIs(1));
  this->Notify();
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "b");
  EXPECT_EQ(g_calls[0].user_data, &this->b_);
  ClearServiceCalls();
  EXPECT_TRUE(TypeParam::Unsubscribe(module));
  EXPECT_THAT(ServiceCalls(), ElementsAre(this->Service("Unsubscribe(100) locked")));
}

TYPED_TEST(TvsStream, IgnoresWhatTheFactoryAnswers) {
  fake_tv_service.answers[TypeParam::kCreate] = -1;
  Module module("mod");
  EXPECT_TRUE(this->template Subscribe<'a'>(module));
}

TYPED_TEST(TvsStream, IsRefusedWhenTheServiceGivesNothing) {
  fake_tv_service.gives_nothing = true;
  Module module("mod");
  EXPECT_FALSE(this->template Subscribe<'a'>(module));
  EXPECT_THAT(LogMessagesWithLock(), ElementsAre(this->Message("16 failed to subscribe % : mod locked")));
  EXPECT_EQ(TypeParam::Names(), nullptr);
  EXPECT_EQ(Module::m_pSubscriberInstances, nullptr);
}

TYPED_TEST(TvsStream, IsRefusedWithoutACopy) {
  Module("other").m_GetCopiedSubscriptionInstance("signal");
  (*Module::m_pSubscriberInstances)[this->Message("mod_%")] = nullptr;
  Module module("mod");
  EXPECT_FALSE(this->template Subscribe<'a'>(module));
  EXPECT_THAT(LogMessagesWithLock(), ElementsAre(this->Message("16 failed to get % subscriber ! locked")));
  EXPECT_EQ(TypeParam::Names(), nullptr);
}

TYPED_TEST(TvsStream, IsRefusedOnceWhenTheServiceRefuses) {
  fake_tv_service.answers[this->Service("Subscribe")] = 0;
  Module module("mod");
  EXPECT_FALSE(this->template Subscribe<'a'>(module, &this->a_));
  EXPECT_THAT(LogMessagesWithLock(), ElementsAre(this->Message("16 failed to subscribe % ! locked")));
  ASSERT_NE(TypeParam::Names(), nullptr);
  EXPECT_THAT(*TypeParam::Names(), IsEmpty());
  EXPECT_EQ(this->CopyOf("mod")->m_pUserData, &this->a_) << "stored before the service is asked";
  EXPECT_NE(TypeParam::CallbackOf(*this->CopyOf("mod")), nullptr);

  ClearServiceCalls();
  Module second("second");
  EXPECT_TRUE(this->template Subscribe<'b'>(second)) << "the stream counts as subscribed";
  EXPECT_THAT(ServiceCalls(), IsEmpty());
  EXPECT_THAT(*TypeParam::Names(), ElementsAre("second"));
}

TYPED_TEST(TvsStream, TakesEveryAnswerBut0ForSuccess) {
  fake_tv_service.answers[this->Service("Subscribe")] = -1;
  Module module("mod");
  EXPECT_TRUE(this->template Subscribe<'a'>(module));
}

TYPED_TEST(TvsStream, AfterAReleaseAsksTheSameServiceObject) {
  Module module("mod");
  this->template Subscribe<'a'>(module);
  Module::ReleaseAll();
  ClearServiceCalls();
  EXPECT_TRUE(this->template Subscribe<'a'>(module));
  EXPECT_THAT(ServiceCalls(), ElementsAre(this->Service("Subscribe(0) locked")));
  EXPECT_EQ(TypeParam::Handle(), 101);
}

TYPED_TEST(TvsStream, FailsBeforeTheServiceIsAskedWhenMemoryIsShort) {
  Module module(kLongName);
  ThrowAtEachAllocation([&] { this->template Subscribe<'a'>(module); },
                        [&] {
                          EXPECT_THAT(ServiceCalls(), ElementsAre(testing::StartsWith(TypeParam::kCreate)));
                          EXPECT_EQ(TypeParam::Names(), nullptr);
                        });
  EXPECT_THAT(ServiceCalls(), SizeIs(2));
  EXPECT_THAT(*TypeParam::Names(), ElementsAre(kLongName));
}

// --- Unsubscribing ---

TYPED_TEST(TvsStream, LastModuleThatGoesEndsTheStream) {
  Module a("a"), b("b");
  this->template Subscribe<'a'>(a);
  this->template Subscribe<'b'>(b);
  ClearLog();
  ClearLockCalls();
  ClearServiceCalls();
  EXPECT_TRUE(TypeParam::Unsubscribe(a));
  EXPECT_THAT(ServiceCalls(), IsEmpty());
  EXPECT_THAT(*TypeParam::Names(), ElementsAre("b"));
  EXPECT_THAT(LockCalls(), ElementsAre("Lock", "Unlock"));
  EXPECT_TRUE(TypeParam::Unsubscribe(b));
  EXPECT_THAT(ServiceCalls(), ElementsAre(this->Service("Unsubscribe(100) locked")));
  EXPECT_EQ(TypeParam::Names(), nullptr);
  EXPECT_THAT(LogMessages(), IsEmpty());
  EXPECT_EQ(TypeParam::Service(), TypeParam::FakeService()) << "the service's object stays";
  EXPECT_NE(TypeParam::CallbackOf(*this->CopyOf("a")), nullptr) << "the copies stay too";
}

TYPED_TEST(TvsStream, IsOverBeforeTheServiceIsAsked) {
  Module module("mod");
  this->template Subscribe<'a'>(module);
  fake_tv_service.during[this->Service("Unsubscribe")] = [this] {
    EXPECT_EQ(TypeParam::Names(), nullptr);
    std::thread([this] { this->Notify(); }).join();
  };
  TypeParam::Unsubscribe(module);
  EXPECT_EQ(LogCount(TypeParam::kDropped), 1);
}

TYPED_TEST(TvsStream, EndOfTheStreamIsTheServicesAnswer) {
  Module module("mod");
  for (const auto &[answer, result] : {std::pair(0, false), std::pair(-1, false), std::pair(2, true)}) {
    this->template Subscribe<'a'>(module);
    fake_tv_service.answers[this->Service("Unsubscribe")] = answer;
    EXPECT_EQ(TypeParam::Unsubscribe(module), result);
    EXPECT_EQ(TypeParam::Names(), nullptr) << "ended although the service refused";
  }
  EXPECT_EQ(LogCount("2 subscription success : mod"), 3);
  EXPECT_THAT(LogMessages(), SizeIs(3));
}

TYPED_TEST(TvsStream, UnsubscribingIsRefusedWhenNothingIsSetUp) {
  Module module("mod");
  EXPECT_FALSE(TypeParam::Unsubscribe(module));
  EXPECT_THAT(LogMessagesWithLock(), ElementsAre("16 No subscriptions !! locked"));
  EXPECT_THAT(ServiceCalls(), IsEmpty());
}

TYPED_TEST(TvsStream, UnsubscribingIsRefusedWithoutAServiceObject) {
  Module module("mod");
  this->template Subscribe<'a'>(module);
  ClearLog();
  TypeParam::Service() = nullptr;
  EXPECT_FALSE(TypeParam::Unsubscribe(module));
  EXPECT_THAT(LogMessages(), ElementsAre("16 No subscriptions !!"));
  EXPECT_THAT(*TypeParam::Names(), SizeIs(1));
}

TYPED_TEST(TvsStream, UnsubscribingIsRefusedSilentlyToAModuleThatIsNotSubscribed) {
  Module module("mod"), other("other");
  this->template Subscribe<'a'>(module);
  ClearLog();
  ClearServiceCalls();
  EXPECT_FALSE(TypeParam::Unsubscribe(other));
  EXPECT_THAT(LogMessages(), IsEmpty());
  EXPECT_THAT(ServiceCalls(), IsEmpty());
  EXPECT_THAT(*TypeParam::Names(), ElementsAre("mod"));
}

TYPED_TEST(TvsStream, ObjectsOfOneNameAreOneModule) {
  Module first("mod"), second("mod");
  this->template Subscribe<'a'>(first);
  this->template Subscribe<'b'>(second);
  this->Notify();
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "b");
  EXPECT_TRUE(TypeParam::Unsubscribe(first));
  EXPECT_EQ(TypeParam::Names(), nullptr);
  EXPECT_FALSE(TypeParam::Unsubscribe(second));
}

// --- Notifications ---

TYPED_TEST(TvsStream, DropsANotificationWhenNothingIsSetUp) {
  this->Notify();
  EXPECT_THAT(LogMessages(), ElementsAre(TypeParam::kDropped));
  EXPECT_THAT(LockCalls(), IsEmpty());
  WaitForServices();
  EXPECT_EQ(Module::m_eventType[TypeParam::kIndex], 0);
}

TYPED_TEST(TvsStream, DropsANotificationWhenThereAreNoCopies) {
  std::set<std::string> names = {"mod"};
  TypeParam::Names() = &names;
  this->Notify();
  EXPECT_THAT(LogMessages(), ElementsAre(TypeParam::kDropped));
  EXPECT_THAT(EcorePosts(), IsEmpty());
  TypeParam::Names() = nullptr;
}

TYPED_TEST(TvsStream, PostsARecordWithACopyOfTheData) {
  Module module("mod");
  this->template Subscribe<'a'>(module);
  ClearLog();
  ClearLockCalls();
  typename TypeParam::Data data;
  data.pts = 0x1ffffffffULL;
  data.payload = {1, 2, 3};
  TypeParam::Notify(data, &data);
  EXPECT_THAT(LogMessages(), IsEmpty());
  EXPECT_THAT(LockCalls(), IsEmpty());

  ASSERT_THAT(EcorePosts(), SizeIs(1));
  const EcorePost post = EcorePosts().front();
  EXPECT_NE(post.type, 0);
  EXPECT_EQ(Module::m_eventType[TypeParam::kIndex], post.type);
  EXPECT_EQ(post.free_function, nullptr);
  EXPECT_EQ(post.free_data, nullptr);
  const auto *record = static_cast<const typename TypeParam::Event *>(post.event);
  EXPECT_NE(record->data, &data);
  EXPECT_EQ(record->data->pts, data.pts);
  EXPECT_EQ(record->data->payload, data.payload);
  WaitForServices(); // releases the copy
}

TYPED_TEST(TvsStream, TellsTheModule) {
  Module module("mod");
  this->template Subscribe<'a'>(module, &this->a_);
  ClearLog();
  ClearLockCalls();
  std::thread([] {
    typename TypeParam::Data data;
    data.pts = 12;
    data.payload.assign(100000, 7);
    TypeParam::Notify(data, nullptr);
  }).join();
  EXPECT_THAT(g_calls, IsEmpty());
  WaitForServices();
  ASSERT_THAT(g_calls, SizeIs(1));
  EXPECT_EQ(g_calls[0].pts, 12U);
  EXPECT_EQ(g_calls[0].payload, std::vector<unsigned char>(100000, 7));
  EXPECT_EQ(g_calls[0].user_data, &this->a_);
  EXPECT_FALSE(g_calls[0].lock_held);
  EXPECT_EQ(g_calls[0].thread, std::this_thread::get_id());
  EXPECT_THAT(LogMessages(), IsEmpty());
  EXPECT_THAT(LockCalls(), testing::Not(testing::Contains("Create")));
}

TYPED_TEST(TvsStream, TellsEveryMemberOfTheData) {
  static typename TypeParam::Data told;
  typename TypeParam::Data data = TypeParam::Filled();
  Module module("mod");
  TypeParam::Subscribe(
      module, [](typename TypeParam::Data &arrived, void *) { told = arrived; }, nullptr);
  TypeParam::Notify(data, nullptr);
  WaitForServices();
  EXPECT_EQ(TypeParam::Members(told), TypeParam::Members(data));
}

TYPED_TEST(TvsStream, TellsTheModulesInTheOrderOfTheirNamesWithTheSameData) {
  Module b("b"), a("a"), c("ab");
  this->template Subscribe<'b'>(b);
  this->template Subscribe<'c'>(c);
  this->template Subscribe<'a'>(a);
  this->Notify(5);
  WaitForServices();
  ASSERT_EQ(ModulesCalled(g_calls), "acb");
  EXPECT_EQ(g_calls[1].data, g_calls[0].data);
  EXPECT_EQ(g_calls[2].data, g_calls[0].data);
  EXPECT_EQ(g_calls[2].pts, 7U) << "each module sees what the ones before have changed";
}

TYPED_TEST(TvsStream, ReportsAModuleWithoutACallbackAndGoesOn) {
  Module a("a"), b("b");
  TypeParam::Subscribe(a, nullptr, nullptr);
  this->template Subscribe<'b'>(b);
  ClearLog();
  this->Notify();
  WaitForServices();
  EXPECT_THAT(LogMessagesWithLock(),
              ElementsAre(this->Message("16 failed to find % subscription instance : name = a")));
  EXPECT_EQ(ModulesCalled(g_calls), "b");
}

TYPED_TEST(TvsStream, LogsInTheNameOfWhatIsCalled) {
  Module module("mod");
  this->Notify();
  TypeParam::Unsubscribe(module);
  TypeParam::Subscribe(module, nullptr, nullptr);
  this->Notify();
  WaitForServices();
  const auto &[notify, unsubscribe, subscribe] = TypeParam::kFunctions;
  EXPECT_THAT(LogFunctions(), ElementsAre(notify, unsubscribe, subscribe, "m_DeferredEventHandler"));
  EXPECT_THAT(LogLines(), testing::Each(testing::Field(&LogLine::file, "TVServiceSubscriber.cpp")));
}

TYPED_TEST(TvsStream, ReportsANameWithoutACopy) {
  Module module("mod");
  this->template Subscribe<'a'>(module);
  TypeParam::Names()->insert("nobody");
  ClearLog();
  this->Notify();
  WaitForServices();
  EXPECT_THAT(LogMessages(), ElementsAre(this->Message("16 failed to find % subscription instance : name = nobody")));
  EXPECT_EQ(ModulesCalled(g_calls), "a");
}

TYPED_TEST(TvsStream, DoesNotTellTheOtherStream) {
  Module module("mod");
  this->template Subscribe<'a'>(module);
  TSPESData packet;
  TSCaption caption;
  Module::t_PesDataCallback(packet, nullptr);
  Module::t_CaptionCallback(caption, nullptr);
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "a");
}

// The record holds a derived class, so this tests that the virtual destructor runs, and before any module is called.
TYPED_TEST(TvsStream, HandlerReleasesTheRecordsData) {
  static bool released;
  struct Derived : TypeParam::Data {
    ~Derived() override { released = true; }
  };
  Module module("mod");
  this->template Subscribe<'a'>(module);
  this->Notify();
  WaitForServices();
  g_during = [] { EXPECT_TRUE(released); };
  typename TypeParam::Event event = {new Derived};
  EXPECT_EQ(Module::m_DeferredEventHandler(nullptr, Module::m_eventType[TypeParam::kIndex], &event), 0);
  EXPECT_TRUE(released);
  EXPECT_EQ(ModulesCalled(g_calls), "aa");
}

TYPED_TEST(TvsStream, IsSilentAfterTheEndOfTheStream) {
  Module module("mod");
  this->template Subscribe<'a'>(module);
  this->Notify();
  TypeParam::Unsubscribe(module);
  ClearLog();
  ClearLockCalls();
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "");
  EXPECT_THAT(LogMessages(), IsEmpty());
  EXPECT_THAT(LockCalls(), IsEmpty());
}

TYPED_TEST(TvsStream, IsSilentAfterARelease) {
  Module module("mod");
  this->template Subscribe<'a'>(module);
  this->Notify();
  Module::ReleaseAll();
  ClearLockCalls();
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "");
  EXPECT_THAT(LockCalls(), IsEmpty());
}

TYPED_TEST(TvsStream, LetsANotificationThroughWhileTheServiceIsAsked) {
  Module module("mod");
  fake_tv_service.during[this->Service("Subscribe")] = [this] { std::thread([this] { this->Notify(); }).join(); };
  this->template Subscribe<'a'>(module);
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "a");
}

// --- What modules do in a callback ---

TYPED_TEST(TvsStream, ModuleUnsubscribesInItsCallback) {
  Module a("a"), b("b");
  this->template Subscribe<'a'>(a);
  this->template Subscribe<'b'>(b);
  g_during = [&] {
    g_during = nullptr;
    EXPECT_TRUE(TypeParam::Unsubscribe(a));
    EXPECT_TRUE(TypeParam::Unsubscribe(b));
  };
  this->Notify();
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "ab") << "both were subscribed when the delivery began";
}

TYPED_TEST(TvsStream, ModuleSubscribesInItsCallback) {
  Module a("a"), b("b");
  this->template Subscribe<'a'>(a);
  g_during = [&] {
    g_during = nullptr;
    EXPECT_TRUE(this->template Subscribe<'b'>(b));
  };
  this->Notify();
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "a") << "the other module subscribed too late for this notification";
  this->Notify();
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "aab");
}

TYPED_TEST(TvsStream, ModuleReplacesTheNextOnesCallbackInItsCallback) {
  Module a("a"), b("b");
  this->template Subscribe<'a'>(a);
  this->template Subscribe<'b'>(b);
  g_during = [&] {
    g_during = nullptr;
    this->template Subscribe<'c'>(b);
  };
  this->Notify();
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "ac");
}

TYPED_TEST(TvsStream, ModuleReleasesAllInItsCallback) {
  Module a("a"), b("b");
  this->template Subscribe<'a'>(a);
  this->template Subscribe<'b'>(b);
  ClearLog();
  g_during = Module::ReleaseAll;
  this->Notify();
  this->Notify();
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "a");
  EXPECT_THAT(LogMessages(), ElementsAre("2 Release All TVS subscriptions !!",
                                         this->Message("16 failed to find % subscription instance : name = b")));
}

TYPED_TEST(TvsStream, ModuleReleasesAllAndSubscribesAnewInItsCallback) {
  Module a("a"), b("b");
  this->template Subscribe<'a'>(a);
  this->template Subscribe<'b'>(b);
  g_during = [&] {
    g_during = nullptr;
    Module::ReleaseAll();
    this->template Subscribe<'c'>(b, &this->b_);
  };
  typename TypeParam::Data data;
  data.pts = 5;
  TypeParam::Notify(data, nullptr);
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "ac") << "a module is looked up by its name when its turn comes";
  EXPECT_EQ(g_calls[1].pts, 6U) << "the same data, as the first module left it";
  EXPECT_EQ(g_calls[1].user_data, &this->b_);
  this->Notify();
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "acc");
}

// Each name is looked up in turn, so one that is missing does not end the walk.
TYPED_TEST(TvsStream, ModuleReleasesAllAndTheLastSubscribesAnewInItsCallback) {
  Module a("a"), b("b"), c("c");
  this->template Subscribe<'a'>(a);
  this->template Subscribe<'b'>(b);
  this->template Subscribe<'c'>(c);
  ClearLog();
  g_during = [&] {
    g_during = nullptr;
    Module::ReleaseAll();
    this->template Subscribe<'d'>(c);
  };
  this->Notify();
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "ad");
  EXPECT_EQ(LogCount(this->Message("16 failed to find % subscription instance : name = b")), 1);
}

// --- All is released on another thread while the handler waits for the lock ---

TYPED_TEST(TvsStream, IsSilentWhenAllIsReleasedJustBeforeTheNamesAreCopied) {
  Module module("mod");
  this->template Subscribe<'a'>(module);
  this->Notify();
  this->Notify();
  BeforeNextLock(Module::ReleaseAll);
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "");
}

TYPED_TEST(TvsStream, IsSilentWhenAllIsReleasedAndTheLockMadeAnewJustBeforeTheNamesAreCopied) {
  Module module("mod");
  this->template Subscribe<'a'>(module);
  this->Notify();
  BeforeNextLock([] {
    Module::ReleaseAll();
    EProgramMonitoringType type;
    Module("other").MonitoringType(type); // takes the lock and leaves it created
  });
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "");
}

TYPED_TEST(TvsStream, ReportsAModuleWhenAllIsReleasedJustBeforeItIsLookedUp) {
  Module module("mod");
  this->template Subscribe<'a'>(module);
  ClearLog();
  this->Notify();
  BeforeNextLock([] { BeforeNextLock(Module::ReleaseAll); });
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "");
  EXPECT_THAT(LogMessages(), ElementsAre("2 Release All TVS subscriptions !!",
                                         this->Message("16 failed to find % subscription instance : name = mod")));
}

// ReleaseAll unlocks before it closes the lock. A module that subscribes in between still receives its notifications.
TYPED_TEST(TvsStream, TellsWhoSubscribedWhileAReleaseClosedTheLock) {
  Module module("mod");
  BeforeNextDestroy([&] { this->template Subscribe<'a'>(module); });
  Module::ReleaseAll();
  this->Notify();
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "a");
}

// --- A lock that refuses ---

TYPED_TEST(TvsStream, IsToldAlthoughTheLockRefusesForAWhile) {
  Module module("mod");
  this->template Subscribe<'a'>(module);
  for (const int refusals : {1, 100}) {
    this->Notify();
    RefuseLocks(refusals);
    WaitForServices();
  }
  EXPECT_EQ(ModulesCalled(g_calls), "aa");
  EXPECT_EQ(LogCount(TypeParam::kDropped), 0);
}

TYPED_TEST(TvsStream, DropsANotificationWhenTheLockAlwaysRefusesAndTriesTheNextAnew) {
  static bool released;
  struct Derived : TypeParam::Data {
    ~Derived() override { released = true; }
  };
  Module module("mod");
  this->template Subscribe<'a'>(module);
  this->Notify();
  WaitForServices(); // creates the event type
  RefuseLocks(kAlways);
  typename TypeParam::Event event = {new Derived};
  Module::m_DeferredEventHandler(nullptr, Module::m_eventType[TypeParam::kIndex], &event);
  EXPECT_TRUE(released);
  EXPECT_EQ(ModulesCalled(g_calls), "a");
  EXPECT_EQ(LogCount(TypeParam::kDropped), 1);
  RefuseLocks(0);
  this->Notify();
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "aa");
}

TYPED_TEST(TvsStream, DropsTheRestOfANotificationWhenTheLockRefusesFromACallbackOn) {
  Module a("a"), b("b");
  this->template Subscribe<'a'>(a);
  this->template Subscribe<'b'>(b);
  ClearLog();
  g_during = [] { RefuseLocks(kAlways); };
  this->Notify();
  WaitForServices();
  RefuseLocks(0);
  EXPECT_EQ(ModulesCalled(g_calls), "a");
  EXPECT_THAT(LogMessages(), ElementsAre(TypeParam::kDropped));
}

TYPED_TEST(TvsStream, DropsANotificationWhenTheLockCannotBeCreated) {
  Module module("mod");
  BeforeNextDestroy([&] { this->template Subscribe<'a'>(module); });
  Module::ReleaseAll();
  RefuseNextCreate();
  this->Notify();
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "");
  EXPECT_EQ(LogCount(TypeParam::kDropped), 1);
  this->Notify();
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "a");
}

// --- Short memory ---

TYPED_TEST(TvsStream, DropsANotificationOnAThreadWhenMemoryIsShort) {
  Module module("mod");
  this->template Subscribe<'a'>(module);
  typename TypeParam::Data data;
  data.payload.assign(100, 7);
  // The data's copy, its payload, the record, and Ecore's wake-up.
  std::thread([&] { FailFirstAllocations(4, [&] { TypeParam::Notify(data, nullptr); }); }).join();
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "a");
  EXPECT_EQ(LogCount(TypeParam::kDropped), 4);
}

TYPED_TEST(TvsStream, DropsANotificationThatTheLoopDoesNotTake) {
  Module module("mod");
  this->template Subscribe<'a'>(module);
  std::thread([this] { this->Notify(1); }).join();
  RefuseNextPost();
  this->Notify(2);
  RefuseNextPost();
  this->Notify(3);
  WaitForServices();
  EXPECT_EQ(ModulesCalled(g_calls), "a");
  EXPECT_EQ(LogCount(TypeParam::kDropped), 2);
}

TYPED_TEST(TvsStream, DropsANotificationInTheHandlerWhenMemoryIsShort) {
  Module module(kLongName);
  this->template Subscribe<'a'>(module);
  this->Notify();
  WaitForServices();
  g_calls.clear();
  g_calls.reserve(1);
  ClearLog();
  typename TypeParam::Event event = {};
  int failures = 0;
  FailEachAllocation(
      [&] {
        const int nth = failures + 1;
        FailAllocation(0);
        event.data = new typename TypeParam::Data;
        FailAllocation(nth);
        Module::m_DeferredEventHandler(nullptr, Module::m_eventType[TypeParam::kIndex], &event);
      },
      [&](int) {
        ++failures;
        EXPECT_EQ(LogCount(TypeParam::kDropped), failures);
        EXPECT_FALSE(AnyLockHeld());
      });
  EXPECT_GE(failures, 3) << "the name, twice, and the key";
  EXPECT_EQ(ModulesCalled(g_calls), "a");
}

} // namespace
