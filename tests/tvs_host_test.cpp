// The library with the desktop's TV service and lock: refusals, late answers, and notifications that arrive in the
// middle of a call.
#include <TVServiceSubscriber.h>
#include <lumio-host/testing.h>
#include <lumio-host/tv-control.h>

#include <gmock/gmock.h>

#include "told.h"

using lumio::testing::WaitForServices;
using lumio::tv::DuringNext;
using lumio::tv::Operation;
using lumio::tv::RefuseNext;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using Module = CTVServiceSubscriber;

Told g_told;

int OnSignal(ESignalType, TSSignalData data, void *) {
  g_told.Add("signal " + std::to_string(data.value));
  return 0;
}
void OnProgram(EProgramChangeType, TCProgramData *data, int, int) { g_told.Add("programme " + data->title); }
void OnSection(bool, unsigned short, unsigned char *data, int stream) {
  g_told.Add("section " + std::to_string(data[0]) + " of " + std::to_string(stream));
}
template <class Data> void OnData(Data &data, void *) {
  g_told.Add("data " + std::string(data.payload.begin(), data.payload.end()));
}
void OnDsm(TSDsmMessage &message) { g_told.Add("message " + std::to_string(message.moduleId)); }

constexpr unsigned short kPid = 0x12;

TCSectionFilterCriteriaHelper Filter() {
  TCSectionFilterCriteriaHelper filter;
  filter.pid = kPid;
  return filter;
}

int HandleOf(lumio::tv::Kind kind) {
  for (const lumio::tv::Subscription &subscription : lumio::tv::Subscriptions()) {
    if (subscription.kind == kind) {
      return subscription.handle;
    }
  }
  return 0;
}

void EmitSignal(int value) { lumio::tv::EmitSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0, {value, 0}); }

void EmitProgram() {
  TCProgramData data;
  data.title = "news";
  lumio::tv::EmitProgram(HandleOf(lumio::tv::Kind::Program), PROGRAM_CHANGE_PRESENT, data);
}

void EmitMessage(int module) { lumio::tv::EmitDsm({0, 0, 0, HandleOf(lumio::tv::Kind::Dsm), module, 0, nullptr}); }

template <class Data> Data Payload(const std::string &text) {
  Data data;
  data.payload.assign(text.begin(), text.end());
  return data;
}

class TvsHost : public testing::Test {
protected:
  ~TvsHost() override {
    Module::ReleaseAll();
    lumio::tv::Shutdown(); // before the main loop ends
  }

  bool Attach(const char *name) {
    return Module(name).AttachDsm(OnDsm, session_, "dvb://1", DSM_DATA_SERVICE_OBJECT_CAROUSEL, DSM_ATTACH_NORMAL,
                                  nullptr, false);
  }

  static std::vector<std::string> Everything() {
    lumio::tv::Flush();
    WaitForServices();
    return g_told.All();
  }

  Module module_{"mod"};
  int handle_ = 0;
  unsigned session_ = 0;
};

// --- In the middle of a subscribe call ---

TEST_F(TvsHost, TellsASignalThatCameBeforeTheServiceAnswered) {
  DuringNext(Operation::SubscribeSignal, [] {
    EmitSignal(1);
    lumio::tv::Flush(); // the lock is not held, so the service's thread gets through
  });
  module_.SetSignalCallback(OnSignal);
  module_.SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, PROFILE_MAIN, 0);
  EXPECT_THAT(g_told.All(), IsEmpty());
  EXPECT_THAT(Everything(), ElementsAre("signal 1"));
}

TEST_F(TvsHost, TellsWhatGoesOverTheMainLoopThoughTheLockIsHeld) {
  for (const Operation operation :
       {Operation::SubscribePES, Operation::SubscribeCaption, Operation::SubscribeProgram}) {
    DuringNext(operation, [operation] {
      if (operation == Operation::SubscribePES) {
        lumio::tv::EmitPes(Payload<TSPESData>("packet"));
      } else if (operation == Operation::SubscribeCaption) {
        lumio::tv::EmitCaption(Payload<TSCaption>("caption"));
      } else {
        EmitProgram();
      }
      lumio::tv::Flush(); // these take no lock
    });
  }
  module_.SubscribePES(OnData<TSPESData>, nullptr);
  module_.SubscribeCaption(OnData<TSCaption>, nullptr);
  module_.SetProgramCallback(OnProgram);
  module_.SubscribeProgram({}, handle_);
  EXPECT_THAT(Everything(), ElementsAre("data packet", "data caption", "programme news"));
}

TEST_F(TvsHost, PassesOverASectionThatCameBeforeTheServiceAnswered) {
  DuringNext(Operation::SubscribeSectionByFilter, [] {
    lumio::tv::EmitSection(kPid, {1});
    lumio::tv::Flush();
  });
  module_.SetSectionCallback(OnSection);
  EXPECT_TRUE(module_.SubscribeSectionByFilter(7, Filter(), handle_));
  lumio::tv::EmitSection(kPid, {2});
  EXPECT_THAT(Everything(), ElementsAre("section 2 of 7"));
}

// The message waits for the lock and then finds the session.
TEST_F(TvsHost, TellsAMessageThatCameBeforeTheServiceAnswered) {
  DuringNext(Operation::AttachDsm, [] { EmitMessage(5); });
  EXPECT_TRUE(Attach("mod"));
  EXPECT_THAT(Everything(), ElementsAre("message 5"));
}

// --- Refusals ---

TEST_F(TvsHost, BearsRefusals) {
  for (const Operation operation : {Operation::SubscribeProgram, Operation::SubscribeSectionByFilter,
                                    Operation::SubscribePES, Operation::SubscribeCaption, Operation::AttachDsm}) {
    RefuseNext(operation, 0);
  }
  module_.SetProgramCallback(OnProgram);
  module_.SetSectionCallback(OnSection);
  EXPECT_FALSE(module_.SubscribeProgram({}, handle_));
  EXPECT_FALSE(module_.SubscribeSectionByFilter(7, Filter(), handle_));
  EXPECT_FALSE(module_.SubscribePES(OnData<TSPESData>, nullptr));
  EXPECT_FALSE(module_.SubscribeCaption(OnData<TSCaption>, nullptr));
  EXPECT_FALSE(Attach("mod"));
  EXPECT_THAT(lumio::tv::Subscriptions(), IsEmpty());

  EXPECT_TRUE(module_.SubscribeProgram({}, handle_));
  EXPECT_TRUE(module_.SubscribeSectionByFilter(7, Filter(), handle_));
  EXPECT_TRUE(Attach("mod"));
  EXPECT_TRUE(module_.SubscribePES(OnData<TSPESData>, nullptr)) << "without asking the service";
  EXPECT_THAT(lumio::tv::Subscriptions(), SizeIs(3));
  EXPECT_FALSE(module_.UnsubscribePES()) << "the service has no such subscription";
  EXPECT_TRUE(module_.SubscribePES(OnData<TSPESData>, nullptr));
  EXPECT_THAT(lumio::tv::Subscriptions(), SizeIs(4));
}

// --- Late answers ---

TEST_F(TvsHost, TellsSectionsWhileTheServiceTakesItsTimeToAnswer) {
  module_.SetSectionCallback(OnSection);
  module_.SubscribeSectionByFilter(7, Filter(), handle_);
  int other = 0;
  DuringNext(Operation::SubscribeSectionByFilter, [] {
    lumio::tv::EmitSection(kPid, {2});
    lumio::tv::Flush();
    EXPECT_THAT(g_told.All(), ElementsAre("section 2 of 7")) << "delivered before the service has answered";
  });
  EXPECT_TRUE(module_.SubscribeSectionByFilter(8, Filter(), other));
}

// --- Two modules, one subscription ---

TEST_F(TvsHost, ServesTwoModulesWithOneSubscription) {
  Module second("second");
  for (Module *module : {&module_, &second}) {
    module->SetSignalCallback(OnSignal);
    module->SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, PROFILE_MAIN, 0);
    module->SubscribePES(OnData<TSPESData>, nullptr);
    module->SubscribeCaption(OnData<TSCaption>, nullptr);
  }
  EXPECT_THAT(lumio::tv::Subscriptions(), SizeIs(3));
  EmitSignal(1);
  EXPECT_THAT(Everything(), ElementsAre("signal 1", "signal 1"));
  module_.UnsubscribeSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0);
  module_.UnsubscribePES();
  module_.UnsubscribeCaption();
  EXPECT_THAT(lumio::tv::Subscriptions(), SizeIs(3)) << "the second module keeps them";
  second.UnsubscribeSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0);
  second.UnsubscribePES();
  second.UnsubscribeCaption();
  EXPECT_THAT(lumio::tv::Subscriptions(), IsEmpty());
}

} // namespace
