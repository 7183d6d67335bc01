// The player: what modules are told of a transport stream, on a clock that moves only when it is told to.
#include <lumio-host/broadcast.h>
#include <lumio-host/tv-control.h>

#include <TVServiceAPI.h>

#include <gmock/gmock.h>

#include <condition_variable>
#include <fstream>
#include <future>
#include <sstream>
#include <thread>

#include "stderr_of.h"
#include "temporary_directory.h"
#include "told.h"
#include "transport_stream.h"

namespace broadcast = lumio::broadcast;
using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using ts::operator+;

namespace {

Told g_told;

template <class... Parts> void Tell(const Parts &...parts) {
  std::ostringstream text;
  const char *separator = "";
  ((text << separator << parts, separator = " "), ...);
  g_told.Add(text.str());
}

std::string TextOf(const std::vector<unsigned char> &bytes) { return {bytes.begin(), bytes.end()}; }

int OnSignal(ESignalType type, EProfile, unsigned short, TSSignalData data, void *) {
  static constexpr const char *kNames[] = {"lock", "service", "audio", "video", "scrambled", "strength"};
  Tell(kNames[type], data.value, data.extra);
  return 1;
}

void OnProgram(EProgramChangeType change, TCProgramData *data, int position, int) {
  static constexpr const char *kNames[] = {"present", "following", "list"};
  Tell(kNames[change], position, data->eventId, data->title);
}

void OnSection(bool valid, unsigned short size, unsigned char *bytes, int key) {
  Tell("section", key, valid, size, static_cast<int>(bytes[0]));
}

void OnPes(TSPESData &data, void *) {
  Tell("pes", data.pid, data.pts == ~0ULL ? -1 : static_cast<long long>(data.pts), TextOf(data.payload));
}

void OnCaption(TSCaption &caption, void *) {
  const char language[] = {static_cast<char>(caption.language >> 16), static_cast<char>(caption.language >> 8),
                           static_cast<char>(caption.language), 0};
  Tell("caption", language, caption.pts, TextOf(caption.payload));
}

void OnDsm(TSDsmMessage &message) {
  const auto *bytes = static_cast<const unsigned char *>(message.data);
  Tell("module", message.type, message.status, message.moduleId, message.version,
       TextOf({bytes, bytes + message.size}));
}

constexpr TCServiceId kServiceOne = 0x000200030001;
constexpr unsigned kVideo = 0x101, kAudio = 0x102, kTeletext = 0x103, kCarousel = 0x104;

// Tables of a stream with two services; 1 has everything, 2 has a picture.
ts::Stream &AddTables(ts::Stream &stream, unsigned version = 0, unsigned audio = kAudio) {
  const ts::Bytes teletext = ts::Descriptor(0x56, ts::Text("deu") + ts::Bytes{0x10, 0x88});
  const ts::Bytes carousel = ts::Descriptor(0x52, {0x0a});
  const ts::Bytes captions = ts::Descriptor(0x86, ts::Bytes{0xc1} + ts::Text("eng") + ts::Bytes{0x7e, 0x3f, 0xff});
  stream.Section(0, ts::Pat(3, {{1, 0x100}, {2, 0x110}}));
  stream.Section(0x11,
                 ts::Sdt(3, 2, {{1, ts::Text("Lumio"), ts::Text("One")}, {2, ts::Text("Lumio"), ts::Text("Two")}}));
  stream.Section(
      0x100,
      ts::Pmt(1, kVideo,
              {{0x02, kVideo, captions}, {0x03, audio, {}}, {0x06, kTeletext, teletext}, {0x0b, kCarousel, carousel}},
              {version}));
  stream.Section(0x110, ts::Pmt(2, 0x111, {{0x1b, 0x111, {}}}));
  return stream;
}

class BroadcastPlayer : public testing::Test {
protected:
  ~BroadcastPlayer() override {
    broadcast::Close();
    lumio::tv::Shutdown();
  }

  std::string Write(const ts::Stream &stream) {
    const std::string path = directory_ / "stream.ts";
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char *>(stream.bytes.data()), static_cast<std::streamsize>(stream.bytes.size()));
    return path;
  }

  bool Open(const ts::Stream &stream, int service = 0) {
    broadcast::Options options;
    options.clock = broadcast::Clock::Virtual;
    options.atEnd = broadcast::AtEnd::LoseSignal;
    options.service = service;
    return broadcast::Open(Write(stream), options);
  }

  // What was told since the last call, and is while the stream's time passes.
  std::vector<std::string> ToldIn(std::chrono::milliseconds time) {
    broadcast::Advance(time);
    lumio::tv::Flush();
    const std::vector<std::string> all = g_told.All();
    return {all.begin() + static_cast<long>(std::exchange(seen_, all.size())), all.end()};
  }

  static void WaitForTheEnd() {
    while (!broadcast::HasEnded()) {
      std::this_thread::sleep_for(1ms);
    }
  }

  ISignalSubscriber *Signals() {
    ISignalSubscriber *subscriber = nullptr;
    TVServiceAPI::CreateSignalSubscriber(OnSignal, &subscriber);
    return subscriber;
  }
  void SubscribeSignal(ESignalType type) { Signals()->Subscribe(type, nullptr, PROFILE_MAIN, 0); }
  IProgramSubscriber *Programs() {
    IProgramSubscriber *subscriber = nullptr;
    TVServiceAPI::CreateProgramSubscriber(OnProgram, &subscriber);
    return subscriber;
  }
  ISectionSubscriber *Sections() {
    ISectionSubscriber *subscriber = nullptr;
    TVServiceAPI::CreateSectionSubscriber(OnSection, PROFILE_MAIN, 0, &subscriber);
    return subscriber;
  }
  void SubscribePes() {
    IPESDataSubscriber *subscriber = nullptr;
    TVServiceAPI::CreatePESDataSubscriber(PROFILE_MAIN, 0, &subscriber);
    int handle = 0;
    subscriber->Subscribe(OnPes, nullptr, &handle);
  }
  void SubscribeCaptions() {
    IDataSubscriber *subscriber = nullptr;
    TVServiceAPI::CreateDataSubscriber(PROFILE_MAIN, 0, &subscriber);
    int handle = 0;
    subscriber->Subscribe(OnCaption, nullptr, &handle);
  }
  unsigned Attach(const std::string &target, EDsmAttachType type) {
    IDsm *dsm = nullptr;
    TVServiceAPI::CreateDsm(OnDsm, &dsm);
    unsigned handle = 0;
    dsm->Attach(handle, {target.begin(), target.end()}, DSM_DATA_SERVICE_DATA_CAROUSEL, type, nullptr, false);
    return handle;
  }

  lumio::TemporaryDirectory directory_;
  std::size_t seen_ = 0; // of what was told
};

} // namespace

// Control

TEST_F(BroadcastPlayer, RefusesWhatIsNoStream) {
  EXPECT_THAT(StderrOf([&] { EXPECT_FALSE(broadcast::Open("/nonexistent.ts")); }), HasSubstr("No such file"));
  ts::Stream stream;
  stream.Append(ts::Bytes(1000, 1));
  EXPECT_THAT(StderrOf([&] { EXPECT_FALSE(Open(stream)); }), HasSubstr("not a transport stream"));
  EXPECT_FALSE(broadcast::IsOpen());
}

TEST_F(BroadcastPlayer, DoesNothingWithoutAStream) {
  broadcast::Tune(1);
  broadcast::Pause(true);
  broadcast::SetSpeed(2);
  broadcast::Advance(1s);
  broadcast::Close();
  EXPECT_FALSE(broadcast::IsOpen());
  EXPECT_FALSE(broadcast::HasEnded());
  EXPECT_EQ(broadcast::TunedService(), 0);
  EXPECT_EQ(broadcast::Position(), 0ms);
  EXPECT_EQ(broadcast::Counted().packets, 0U);
  EXPECT_THAT(broadcast::Services(), IsEmpty());
}

TEST_F(BroadcastPlayer, ListsTheServicesBeforeItPlays) {
  ts::Stream stream;
  stream.Pcr(kVideo, 0);
  AddTables(stream);
  ASSERT_TRUE(Open(stream));
  const std::vector<broadcast::ServiceInfo> services = broadcast::Services();
  ASSERT_EQ(services.size(), 2U);
  EXPECT_EQ(services[0].id, 1);
  EXPECT_EQ(services[0].serviceId, kServiceOne);
  EXPECT_EQ(services[0].name, "One");
  EXPECT_EQ(services[0].provider, "Lumio");
  ASSERT_EQ(services[0].streams.size(), 4U);
  EXPECT_EQ(services[0].streams[3].pid, kCarousel);
  EXPECT_EQ(services[0].streams[3].kind, "carousel");
  EXPECT_EQ(services[0].streams[3].componentTag, 0x0a);
}

TEST_F(BroadcastPlayer, PlaysAsFarAsTimeHasPassed) {
  ts::Stream stream;
  AddTables(stream);
  for (int i = 0; i < 50; ++i) {
    stream.Pcr(kVideo, i * 0.1);
    stream.Section(0x20, ts::LongSection(0x80 + static_cast<unsigned>(i), 0, {}, {}));
  }
  ASSERT_TRUE(Open(stream));
  int handle = 0;
  Sections()->SubscribeByFilter(7, {0x20, {}, {}}, handle);
  EXPECT_THAT(ToldIn(0ms), IsEmpty());
  EXPECT_THAT(ToldIn(250ms), ElementsAre("section 7 1 12 128", "section 7 1 12 129", "section 7 1 12 130"));
  EXPECT_EQ(broadcast::Position(), 300ms);
  EXPECT_THAT(ToldIn(50ms), IsEmpty());
  EXPECT_THAT(ToldIn(50ms), ElementsAre("section 7 1 12 131"));
  broadcast::Pause(true);
  EXPECT_THAT(ToldIn(1s), IsEmpty());
  broadcast::Pause(false);
  EXPECT_THAT(ToldIn(100ms), ElementsAre("section 7 1 12 132"));
  EXPECT_EQ(ToldIn(1h).size(), 45U);
  EXPECT_TRUE(broadcast::HasEnded());
  EXPECT_EQ(broadcast::Counted().packets, stream.Packets());
}

TEST_F(BroadcastPlayer, KeepsTimeOverJumpsAndTheEndOfTheClock) {
  constexpr double kCycle = 8589934592.0 / 90000; // seconds
  ts::Stream stream;
  AddTables(stream);
  for (const double time : {kCycle - 0.3, kCycle - 0.1, 0.1, 0.3}) {
    stream.Pcr(kVideo, time);
  }
  stream.Pcr(kVideo, 5000); // far ahead
  stream.Pcr(kVideo, 5000.2);
  stream.Pcr(kVideo, 5000.3, true); // as the stream says itself
  stream.Pcr(kVideo, 17);           // back
  stream.Pcr(kVideo, 17.2);
  ASSERT_TRUE(Open(stream));
  ToldIn(1h);
  EXPECT_EQ(broadcast::Position(), 1000ms);
}

TEST_F(BroadcastPlayer, LoopsWithoutErrors) {
  ts::Stream stream;
  AddTables(stream);
  stream.Pcr(kVideo, 11); // seems to follow the last one
  stream.Packet(kVideo, ts::Bytes(184, 1));
  stream.Pcr(kVideo, 10);
  stream.Pcr(kVideo, 10.5);
  broadcast::Options options;
  options.clock = broadcast::Clock::Virtual;
  ASSERT_TRUE(broadcast::Open(Write(stream), options));
  SubscribeSignal(SIGNAL_TYPE_LOCK);
  EXPECT_THAT(ToldIn(10s), ElementsAre("lock 1 0"));
  EXPECT_FALSE(broadcast::HasEnded());
  EXPECT_GE(broadcast::Counted().packets, 20 * stream.Packets());
  EXPECT_EQ(broadcast::Counted().continuityErrors, 0U);
}

TEST_F(BroadcastPlayer, FollowsTheTablesInEachRound) {
  ts::Stream stream;
  stream.Pcr(kVideo, 0);
  AddTables(stream, 0);
  stream.Pcr(kVideo, 1);
  AddTables(stream, 1, 0x222);
  stream.Pcr(kVideo, 2);
  broadcast::Options options;
  options.clock = broadcast::Clock::Virtual;
  ASSERT_TRUE(broadcast::Open(Write(stream), options));
  SubscribeSignal(SIGNAL_TYPE_AUDIO_CHANGED);
  EXPECT_THAT(ToldIn(3500ms), ElementsAre("audio 258 3", "audio 546 3", "audio 258 3", "audio 546 3"));
}

TEST_F(BroadcastPlayer, PassesTimeInAStreamWithoutClock) {
  ts::Stream stream;
  AddTables(stream);
  for (int i = 0; i < 2000; ++i) { // so that the player need not begin again for every few packets
    stream.Null();
  }
  broadcast::Options options;
  options.clock = broadcast::Clock::Virtual;
  ASSERT_TRUE(broadcast::Open(Write(stream), options));
  broadcast::Advance(1s);
  EXPECT_GE(broadcast::Position(), 1s);
}

TEST_F(BroadcastPlayer, ClosesWhileItPlays) {
  ts::Stream stream;
  AddTables(stream);
  for (int i = 0; i < 10; ++i) {
    broadcast::Options options;
    options.clock = i % 2 == 0 ? broadcast::Clock::None : broadcast::Clock::RealTime;
    ASSERT_TRUE(broadcast::Open(Write(stream), options));
    SubscribeSignal(SIGNAL_TYPE_LOCK);
  }
  broadcast::Close();
  EXPECT_FALSE(broadcast::IsOpen());
}

TEST_F(BroadcastPlayer, ClosesFromACallbackThatItWaitsFor) {
  ts::Stream stream;
  AddTables(stream);
  for (int i = 0; i < 100; ++i) {
    stream.Section(0x20, ts::LongSection(0x80, 0, {}, {}));
    stream.Pcr(kVideo, i);
  }
  ISectionSubscriber *subscriber = nullptr;
  TVServiceAPI::CreateSectionSubscriber([](bool, unsigned short, unsigned char *, int) { broadcast::Close(); },
                                        PROFILE_MAIN, 0, &subscriber);
  int handle = 0;
  subscriber->SubscribeByFilter(7, {0x20, {}, {}}, handle);
  broadcast::Options options;
  options.clock = broadcast::Clock::None;
  ASSERT_TRUE(broadcast::Open(Write(stream), options));
  while (broadcast::IsOpen()) {
    std::this_thread::yield();
  }
}

TEST_F(BroadcastPlayer, MayBeAdvancedFromACallback) {
  ts::Stream stream;
  AddTables(stream);
  for (int i = 0; i < 100; ++i) {
    stream.Pcr(kVideo, i);
    stream.Section(0x20, ts::LongSection(0x80, 0, {}, {}));
  }
  ISectionSubscriber *subscriber = nullptr;
  TVServiceAPI::CreateSectionSubscriber([](bool, unsigned short, unsigned char *, int) { broadcast::Advance(1s); },
                                        PROFILE_MAIN, 0, &subscriber);
  int handle = 0;
  subscriber->SubscribeByFilter(7, {0x20, {}, {}}, handle);
  ASSERT_TRUE(Open(stream));
  broadcast::Advance(1s);
  while (!broadcast::HasEnded()) {
    std::this_thread::yield();
  }
}

TEST_F(BroadcastPlayer, AdvancesUntilTheEndIsTold) {
  static std::atomic<bool> g_is_told{false};
  static std::promise<bool> g_was_told; // when another thread's call returned
  ts::Stream stream;
  AddTables(stream);
  ASSERT_TRUE(Open(stream));
  ISignalSubscriber *subscriber = nullptr;
  std::thread other;
  TVServiceAPI::CreateSignalSubscriber(
      [](ESignalType, EProfile, unsigned short, TSSignalData data, void *other_thread) {
        if (data.value == 0) {
          *static_cast<std::thread *>(other_thread) = std::thread([] {
            broadcast::Advance(0ms);
            g_was_told.set_value(g_is_told);
          });
          std::this_thread::sleep_for(20ms); // time to return too early
          g_is_told = true;
        }
        return 1;
      },
      &subscriber);
  subscriber->Subscribe(SIGNAL_TYPE_LOCK, &other, PROFILE_MAIN, 0);
  broadcast::Advance(1s);
  EXPECT_TRUE(g_was_told.get_future().get());
  other.join();
}

TEST_F(BroadcastPlayer, WaitsUntilWhatItToldIsTaken) {
  ts::Stream stream;
  AddTables(stream);
  for (int i = 0; i < 20; ++i) {
    stream.Section(0x20, ts::LongSection(0x80, 0, {}, {}));
    stream.Pcr(kVideo, i);
  }
  int handle = 0;
  Sections()->SubscribeByFilter(7, {0x20, {}, {}}, handle);
  std::mutex mutex;
  std::condition_variable settled;
  std::vector<std::size_t> told;
  std::vector<std::function<void()>> go_on;
  broadcast::Options options;
  options.clock = broadcast::Clock::None;
  options.atEnd = broadcast::AtEnd::LoseSignal;
  options.settle = [&](std::function<void()> done) {
    const std::lock_guard<std::mutex> lock(mutex);
    told.push_back(g_told.All().size()); // delivered, without waiting for it
    go_on.push_back(std::move(done));
    settled.notify_all();
  };
  ASSERT_TRUE(broadcast::Open(Write(stream), options));
  for (std::size_t i = 1; i < 10; ++i) {
    std::unique_lock<std::mutex> lock(mutex);
    settled.wait(lock, [&] { return go_on.size() == i; });
    EXPECT_LE(told.back(), i + 1);
    go_on.back()();
  }
  broadcast::Close(); // although it waits
}

TEST_F(BroadcastPlayer, PlaysInRealTimeAsTheStreamsClockSays) {
  ts::Stream stream;
  AddTables(stream);
  for (int i = 0; i <= 10; ++i) {
    stream.Pcr(kVideo, i * 0.05);
  }
  broadcast::Options options;
  options.atEnd = broadcast::AtEnd::LoseSignal;
  options.speed = 2;
  options.paused = true;
  ASSERT_TRUE(broadcast::Open(Write(stream), options));
  std::this_thread::sleep_for(100ms); // does not count
  const auto start = std::chrono::steady_clock::now();
  broadcast::Pause(false);
  WaitForTheEnd();
  EXPECT_GE(std::chrono::steady_clock::now() - start, 200ms); // of half a second of stream, until its last clock
}

TEST_F(BroadcastPlayer, DoesNotPlayWhilePausedWhateverTheClock) {
  ts::Stream stream;
  AddTables(stream);
  broadcast::Options options;
  options.clock = broadcast::Clock::None;
  options.atEnd = broadcast::AtEnd::LoseSignal;
  options.paused = true;
  ASSERT_TRUE(broadcast::Open(Write(stream), options));
  for (const int service : {2, 1}) { // the player's thread has looked twice at what is to be done
    broadcast::Tune(service);
    while (broadcast::TunedService() != service) {
      std::this_thread::yield();
    }
  }
  EXPECT_EQ(broadcast::Counted().packets, 0U);
  broadcast::Pause(false);
  WaitForTheEnd();
  EXPECT_EQ(broadcast::Counted().packets, stream.Packets());
}

TEST_F(BroadcastPlayer, CountsTheTimeAfresh) {
  ts::Stream stream;
  AddTables(stream);
  for (int i = 0; i <= 240; ++i) {
    stream.Pcr(kVideo, i * 0.5);
  }
  const std::size_t before = stream.Packets();
  for (int i = 1; i <= 3; ++i) {
    stream.Pcr(kVideo, 120 + i * 0.001);
  }
  std::size_t packets = 0;
  broadcast::SetPacketListener([&](const unsigned char *) {
    if (++packets == before + 1) {
      broadcast::SetSpeed(0.01); // at which the two minutes so far would take hours
    }
  });
  broadcast::Options options;
  options.atEnd = broadcast::AtEnd::LoseSignal;
  options.speed = 1e6;
  ASSERT_TRUE(broadcast::Open(Write(stream), options));
  WaitForTheEnd();
  broadcast::SetPacketListener(nullptr);
  EXPECT_EQ(broadcast::Position(), 120'003ms);
}

TEST_F(BroadcastPlayer, ChangesItsSpeed) {
  ts::Stream stream;
  AddTables(stream);
  for (int i = 0; i <= 10; ++i) {
    stream.Pcr(kVideo, i);
  }
  broadcast::Options options;
  options.atEnd = broadcast::AtEnd::LoseSignal;
  options.speed = 0.0001; // it would play for a day
  ASSERT_TRUE(broadcast::Open(Write(stream), options));
  broadcast::SetSpeed(0);  // is not a speed
  broadcast::SetSpeed(-1); // nor is this
  broadcast::SetSpeed(1000);
  WaitForTheEnd();
  EXPECT_EQ(broadcast::Position(), 10s);
}

TEST_F(BroadcastPlayer, IsControlledFromAnyThread) {
  ts::Stream stream;
  AddTables(stream);
  for (int i = 0; i < 200; ++i) {
    stream.Pcr(kVideo, i * 0.01);
    stream.Pes(kVideo, ts::Pes(0xe0, {1}, ts::Text("one")));
  }
  const std::string path = Write(stream);
  broadcast::Options options;
  options.clock = broadcast::Clock::Virtual;
  SubscribePes();
  std::vector<std::thread> threads;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([&, number] {
      for (int i = 0; i < 25; ++i) {
        number == 0 && i % 5 == 0 ? void(broadcast::Open(path, options)) : broadcast::Tune(1 + i % 2);
        number == 1 && i % 9 == 0 ? broadcast::Close() : broadcast::Pause(number == 2 && i % 2 == 0);
        broadcast::SetSpeed(i);
        broadcast::Services();
        broadcast::Counted();
        broadcast::Position();
        broadcast::TunedService();
        number == 3 ? broadcast::Advance(10ms) : broadcast::Pause(false);
      }
    });
  }
  for (std::thread &thread : threads) {
    thread.join();
  }
  ASSERT_TRUE(broadcast::Open(path, options));
  broadcast::Advance(1s);
  EXPECT_GE(broadcast::Position(), 1s);
}

TEST_F(BroadcastPlayer, PassesOnItsPackets) {
  ts::Stream stream;
  AddTables(stream);
  stream.Null();
  ts::Bytes passed;
  broadcast::SetPacketListener([&](const unsigned char *packet) { passed.insert(passed.end(), packet, packet + 188); });
  ASSERT_TRUE(Open(stream));
  broadcast::Advance(1s);
  broadcast::SetPacketListener(nullptr);
  EXPECT_EQ(passed, stream.bytes);
}

TEST_F(BroadcastPlayer, PlaysWhatTheEnvironmentNames) {
  ts::Stream stream;
  AddTables(stream);
  stream.Pcr(kVideo, 1);
  const std::string path = Write(stream);
  setenv("LUMIO_TV", path.c_str(), 1);
  EXPECT_FALSE(broadcast::IsOpen());
  SubscribeSignal(SIGNAL_TYPE_SERVICE_CHANGED);
  EXPECT_TRUE(broadcast::IsOpen());
  while (g_told.All().empty()) {
    std::this_thread::yield();
  }
  EXPECT_EQ(g_told.All().front(), "service 1 0");
}

namespace {

// Each function that makes a subscriber object.
using Factory = void (*)();
constexpr Factory kFactories[] = {
    [] {
      ISignalSubscriber *subscriber = nullptr;
      TVServiceAPI::CreateSignalSubscriber(OnSignal, &subscriber);
    },
    [] {
      IProgramSubscriber *subscriber = nullptr;
      TVServiceAPI::CreateProgramSubscriber(OnProgram, &subscriber);
    },
    [] {
      ISectionSubscriber *subscriber = nullptr;
      TVServiceAPI::CreateSectionSubscriber(OnSection, PROFILE_MAIN, 0, &subscriber);
    },
    [] {
      IPESDataSubscriber *subscriber = nullptr;
      TVServiceAPI::CreatePESDataSubscriber(PROFILE_MAIN, 0, &subscriber);
    },
    [] {
      IDataSubscriber *subscriber = nullptr;
      TVServiceAPI::CreateDataSubscriber(PROFILE_MAIN, 0, &subscriber);
    },
    [] {
      IDsm *subscriber = nullptr;
      TVServiceAPI::CreateDsm(OnDsm, &subscriber);
    },
};

class FirstFactory : public BroadcastPlayer, public testing::WithParamInterface<Factory> {};

} // namespace

TEST_P(FirstFactory, OpensWhatTheEnvironmentNames) {
  ts::Stream stream;
  AddTables(stream);
  setenv("LUMIO_TV", Write(stream).c_str(), 1);
  EXPECT_FALSE(broadcast::IsOpen());
  GetParam()();
  EXPECT_TRUE(broadcast::IsOpen());
}

INSTANTIATE_TEST_SUITE_P(Each, FirstFactory, testing::ValuesIn(kFactories),
                         [](const auto &factory) { return std::to_string(factory.index); });

// Signals

TEST_F(BroadcastPlayer, TellsSignalsWhenTheyChange) {
  ts::Stream stream;
  stream.Pcr(kVideo, 0);
  AddTables(stream);
  stream.Pcr(kVideo, 0.1);
  stream.Packet(kVideo, ts::Bytes(184, 1));
  stream.Pcr(kVideo, 0.2);
  ts::PacketOptions scrambled;
  scrambled.scrambling = 2;
  stream.Packet(kVideo, ts::Bytes(184, 2), scrambled);
  stream.Pcr(kAudio, 0);
  stream.Packet(kVideo, ts::Bytes(184, 2), scrambled);
  stream.Pcr(kVideo, 0.3);
  AddTables(stream, 1, 0x222);
  stream.Pcr(kVideo, 0.4);
  AddTables(stream, 1, 0x222);
  ASSERT_TRUE(Open(stream));
  for (const ESignalType type : {SIGNAL_TYPE_LOCK, SIGNAL_TYPE_SERVICE_CHANGED, SIGNAL_TYPE_AUDIO_CHANGED,
                                 SIGNAL_TYPE_VIDEO_CHANGED, SIGNAL_TYPE_SCRAMBLED}) {
    SubscribeSignal(type);
  }
  EXPECT_THAT(ToldIn(100ms), ElementsAre("lock 1 0", "service 1 0", "video 257 2", "audio 258 3", "scrambled 0 0"));
  EXPECT_THAT(ToldIn(100ms), IsEmpty());
  EXPECT_THAT(ToldIn(100ms), ElementsAre("scrambled 1 0", "scrambled 0 0"));
  EXPECT_THAT(ToldIn(100ms), ElementsAre("audio 546 3"));
  EXPECT_THAT(ToldIn(1h), ElementsAre("lock 0 0"));
}

TEST_F(BroadcastPlayer, TellsSignalsOnceToANewSubscription) {
  ts::Stream stream;
  AddTables(stream);
  stream.Pcr(kVideo, 0);
  stream.Pcr(kVideo, 1);
  ASSERT_TRUE(Open(stream));
  broadcast::Advance(100ms);
  SubscribeSignal(SIGNAL_TYPE_LOCK);
  EXPECT_THAT(ToldIn(0ms), ElementsAre("lock 1 0"));
  Signals()->Unsubscribe(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0);
  SubscribeSignal(SIGNAL_TYPE_LOCK);
  EXPECT_THAT(ToldIn(0ms), ElementsAre("lock 1 0"));
  SubscribeSignal(SIGNAL_TYPE_SERVICE_CHANGED);
  EXPECT_THAT(ToldIn(0ms), ElementsAre("service 1 0"));
  Signals()->Subscribe(SIGNAL_TYPE_LOCK, nullptr, PROFILE_PIP, 0);
  Signals()->Subscribe(SIGNAL_TYPE_LOCK, nullptr, PROFILE_MAIN, 1);
  EXPECT_THAT(ToldIn(0ms), IsEmpty());
}

TEST_F(BroadcastPlayer, ForgetsTheScramblingOfStreamsThatAreGone) {
  ts::PacketOptions scrambled;
  scrambled.scrambling = 2;
  ts::Stream stream;
  AddTables(stream);
  stream.Packet(kAudio, ts::Bytes(184, 1), scrambled);
  stream.Pcr(kVideo, 0);
  AddTables(stream, 1, 0x222);
  stream.Pcr(kVideo, 1);
  stream.Packet(0x222, ts::Bytes(184, 1), scrambled);
  stream.Packet(0x111, ts::Bytes(184, 1));
  stream.Pcr(kVideo, 2);
  AddTables(stream, 2, 0x222);
  stream.Pcr(kVideo, 3);
  stream.Packet(0x111, ts::Bytes(184, 1));
  stream.Pcr(kVideo, 4);
  ASSERT_TRUE(Open(stream));
  SubscribeSignal(SIGNAL_TYPE_SCRAMBLED);
  EXPECT_THAT(ToldIn(500ms), ElementsAre("scrambled 1 0", "scrambled 0 0")); // another PMT
  EXPECT_THAT(ToldIn(2s), ElementsAre("scrambled 1 0"));                     // a PMT with the same streams
  broadcast::Tune(2);
  EXPECT_THAT(ToldIn(1s), ElementsAre("scrambled 0 0"));
}

TEST_F(BroadcastPlayer, MeasuresStrengthAndQualityEachSecond) {
  ts::Stream stream;
  AddTables(stream);
  const std::size_t before = stream.Packets();
  stream.Pcr(kVideo, 0);
  ts::PacketOptions error;
  error.error = true;
  for (std::size_t i = before + 1; i < 98; ++i) {
    i % 10 == 0 ? stream.Packet(0x99, {1}, error) : stream.Null();
  }
  stream.Packet(0x80, {1});
  stream.Skip(0x80, 1);
  stream.Packet(0x80, {1});
  stream.Pcr(kVideo, 1);
  for (int i = 0; i < 50; ++i) {
    stream.Null();
  }
  stream.Pcr(kVideo, 2);
  stream.Pcr(kVideo, 3);
  ASSERT_TRUE(Open(stream));
  SubscribeSignal(SIGNAL_TYPE_STRENGTH);
  EXPECT_THAT(ToldIn(500ms), ElementsAre("strength 91 99"));
  EXPECT_THAT(ToldIn(1s), ElementsAre("strength 100 100"));
  EXPECT_THAT(ToldIn(1s), IsEmpty());
}

TEST_F(BroadcastPlayer, TunesToAnotherService) {
  ts::Stream stream;
  AddTables(stream);
  stream.Pes(kVideo, ts::Pes(0xe0, {10}, ts::Text("one")));
  stream.Pes(0x111, ts::Pes(0xe0, {20}, ts::Text("two")));
  for (int i = 0; i < 5; ++i) {
    stream.Pcr(kVideo, i);
    stream.Pcr(0x111, 50 + i);
    stream.Pes(kVideo, ts::Pes(0xe0, {30}, ts::Text("one")));
    stream.Pes(0x111, ts::Pes(0xe0, {40}, ts::Text("two")));
  }
  ASSERT_TRUE(Open(stream));
  SubscribePes();
  EXPECT_THAT(ToldIn(500ms), ElementsAre("pes 257 10 one", "pes 257 30 one"));
  EXPECT_EQ(broadcast::TunedService(), 1);
  SubscribeSignal(SIGNAL_TYPE_SERVICE_CHANGED);
  EXPECT_THAT(ToldIn(0ms), ElementsAre("service 1 0"));
  broadcast::Tune(2);
  EXPECT_THAT(ToldIn(0ms), ElementsAre("service 2 0"));
  EXPECT_EQ(broadcast::TunedService(), 2);
  EXPECT_THAT(ToldIn(1s), testing::Each(HasSubstr("pes 273")));
  broadcast::Tune(99); // is not there
  EXPECT_THAT(ToldIn(1h), IsEmpty());
}

// Programmes

namespace {

ts::Event EventAt(unsigned id, int hour, const std::string &title) {
  return {id, ts::Time(1'700'006'400 + hour * 3600), ts::Duration(3600), ts::Text(title), ts::Text("text")};
}

ts::Bytes PresentOrFollowing(unsigned number, const ts::Event &event, unsigned version) {
  return ts::Eit(0x4e, {2, 3, 1}, {event}, {version, number, 1});
}

} // namespace

TEST_F(BroadcastPlayer, TellsPresentAndFollowing) {
  ts::Stream stream;
  AddTables(stream);
  stream.Section(0x12, PresentOrFollowing(0, EventAt(1, 0, "News"), 0));
  stream.Pcr(kVideo, 0);
  stream.Pcr(kVideo, 1);
  stream.Section(0x12, PresentOrFollowing(1, EventAt(2, 1, "Film"), 0));
  stream.Pcr(kVideo, 2);
  stream.Section(0x12, PresentOrFollowing(0, EventAt(1, 0, "News"), 0)); // repeated
  stream.Section(0x12, PresentOrFollowing(0, EventAt(1, 0, "News"), 1)); // another version of the same
  stream.Section(0x12, ts::Eit(0x4f, {2, 3, 1}, {EventAt(9, 0, "Lie")}, {3, 0, 0}));
  stream.Section(0x12, ts::Eit(0x4e, {2, 3, 2}, {EventAt(9, 0, "Elsewhere")}, {3, 0, 0}));
  stream.Pcr(kVideo, 3);
  stream.Section(0x12, PresentOrFollowing(0, EventAt(2, 1, "Film"), 2));
  stream.Section(0x12, PresentOrFollowing(1, EventAt(3, 2, "Sport"), 2));
  stream.Pcr(kVideo, 4);
  ASSERT_TRUE(Open(stream));
  broadcast::Advance(500ms);
  int handle = 0;
  int once = 0;
  Programs()->SubscribeProgramListPF(0, kServiceOne, SUBSCRIBE_TYPE_CHANGES, handle);
  EXPECT_THAT(ToldIn(0ms), ElementsAre("present 0 1 News"));
  int early = 0;
  Programs()->SubscribeProgramListPF(0, kServiceOne, SUBSCRIBE_TYPE_ONCE, early);
  EXPECT_THAT(ToldIn(0ms), IsEmpty()); // until both are there
  EXPECT_THAT(ToldIn(1s), ElementsAre("following 1 2 Film", "present 0 1 News", "following 1 2 Film"));
  Programs()->SubscribeProgramListPF(0, kServiceOne, SUBSCRIBE_TYPE_ONCE, once);
  EXPECT_THAT(ToldIn(0ms), ElementsAre("present 0 1 News", "following 1 2 Film"));
  EXPECT_THAT(ToldIn(1s), IsEmpty());
  EXPECT_THAT(ToldIn(1s), ElementsAre("present 0 2 Film", "following 1 3 Sport"));
  Programs()->UnsubscribeProgramList(handle);
}

TEST_F(BroadcastPlayer, TellsListsAndSingleProgrammes) {
  ts::Stream stream;
  AddTables(stream);
  stream.Section(0x12, ts::Eit(0x50, {2, 3, 1}, {EventAt(5, 5, "Five"), EventAt(2, 2, "Two")}, {0, 0, 1}));
  stream.Pcr(kVideo, 0);
  stream.Pcr(kVideo, 1);
  stream.Section(0x12, ts::Eit(0x50, {2, 3, 1}, {EventAt(3, 3, "Three")}, {0, 1, 1}));
  stream.Pcr(kVideo, 2);
  stream.Section(0x12, ts::Eit(0x50, {2, 3, 1}, {EventAt(5, 5, "Five"), EventAt(2, 2, "Two, changed")}, {1, 0, 1}));
  stream.Pcr(kVideo, 3);
  ASSERT_TRUE(Open(stream));
  broadcast::Advance(500ms);
  constexpr unsigned kBase = 1'700'006'400;
  int all = 0, some = 0, once = 0, one = 0;
  Programs()->SubscribeProgramList(0, kServiceOne, kBase, kBase + 86400, SUBSCRIBE_TYPE_CHANGES, all);
  EXPECT_THAT(ToldIn(0ms), ElementsAre("list 0 2 Two", "list 1 5 Five"));
  Programs()->SubscribeProgramList(0, kServiceOne, kBase + 3 * 3600, kBase + 4 * 3600, SUBSCRIBE_TYPE_CHANGES, some);
  Programs()->SubscribeProgramList(0, kServiceOne, kBase, kBase + 86400, SUBSCRIBE_TYPE_ONCE, once);
  Programs()->SubscribeProgram({kServiceOne, 2}, one);
  EXPECT_THAT(ToldIn(0ms), ElementsAre("list 0 2 Two"));                                   // the single one
  EXPECT_THAT(ToldIn(1s), ElementsAre("list 1 3 Three",                                    // of all
                                      "list 0 3 Three",                                    // of some
                                      "list 0 2 Two", "list 1 3 Three", "list 2 5 Five")); // once
  EXPECT_THAT(ToldIn(1s), ElementsAre("list 0 2 Two, changed", "list 0 2 Two, changed"));
}

TEST_F(BroadcastPlayer, TellsProgrammesOfOtherStreams) {
  ts::Stream stream;
  AddTables(stream);
  stream.Section(0x12, ts::Eit(0x4f, {2, 9, 7}, {EventAt(1, 0, "There")}, {0, 0, 1}));
  stream.Section(0x12, ts::Eit(0x60, {2, 9, 7}, {EventAt(2, 1, "Later")}));
  ASSERT_TRUE(Open(stream));
  int handle = 0;
  Programs()->SubscribeProgramListPF(0, 0x000200090007, SUBSCRIBE_TYPE_CHANGES, handle);
  EXPECT_THAT(ToldIn(1s), ElementsAre("present 0 1 There"));
  Programs()->SubscribeProgramList(0, 0x000200090007, 0, ~0U, SUBSCRIBE_TYPE_ONCE, handle);
  EXPECT_THAT(ToldIn(0ms), ElementsAre("list 0 1 There", "list 1 2 Later"));
}

TEST_F(BroadcastPlayer, TellsTitleDescriptionAndTimes) {
  static TCProgramData g_data;
  IProgramSubscriber *subscriber = nullptr;
  TVServiceAPI::CreateProgramSubscriber([](EProgramChangeType, TCProgramData *data, int, int) { g_data = *data; },
                                        &subscriber);
  ts::Stream stream;
  AddTables(stream);
  stream.Section(0x12, ts::Eit(0x4e, {2, 3, 1},
                               {{5, ts::Time(1'700'006'400), ts::Duration(5400), ts::Bytes{0xc2, 'e'},
                                 ts::Bytes{0x05} + ts::Bytes{0xfe}}}));
  ASSERT_TRUE(Open(stream));
  int handle = 0;
  subscriber->SubscribeProgramListPF(0, kServiceOne, SUBSCRIBE_TYPE_CHANGES, handle);
  ToldIn(1s);
  EXPECT_EQ(g_data.serviceId, kServiceOne);
  EXPECT_EQ(g_data.eventId, 5);
  EXPECT_EQ(g_data.title, "\u00e9");
  EXPECT_EQ(g_data.description, "\u015f"); // Turkish
  EXPECT_EQ(g_data.startTime, 1'700'006'400);
  EXPECT_EQ(g_data.duration, 5400U);
}

// Sections, PES packets, captions, carousels

TEST_F(BroadcastPlayer, DoesNotTouchTheBytesOfSections) {
  static std::vector<ts::Bytes> g_sections;
  ISectionSubscriber *subscriber = nullptr;
  TVServiceAPI::CreateSectionSubscriber(
      [](bool, unsigned short size, unsigned char *bytes, int) { g_sections.emplace_back(bytes, bytes + size); },
      PROFILE_MAIN, 0, &subscriber);
  ts::Stream stream;
  AddTables(stream);
  std::vector<ts::Bytes> sections;
  for (unsigned i = 0; i < 40; ++i) {
    ts::Bytes body(4084 - i * 100);
    std::generate(body.begin(), body.end(), [&, value = i]() mutable { return static_cast<std::uint8_t>(value += 7); });
    sections.push_back(ts::LongSection(0x80, i, {}, body));
  }
  stream.Sections(0x20, sections);
  ASSERT_TRUE(Open(stream));
  int handle = 0;
  subscriber->SubscribeByFilter(7, {0x20, {}, {}}, handle);
  ToldIn(1s);
  EXPECT_TRUE(g_sections == sections);
}

TEST_F(BroadcastPlayer, TellsSectionsWithTheirChecksums) {
  ts::Stream stream;
  AddTables(stream);
  ts::Bytes wrong = ts::LongSection(0x81, 0, {}, ts::Bytes(4084, 1));
  wrong[100] ^= 1;
  stream.Sections(0x20, {ts::LongSection(0x80, 0, {}, {}), wrong, ts::LongSection(0x82, 0, {}, {})});
  ASSERT_TRUE(Open(stream));
  int first = 0, second = 0, pat = 0;
  Sections()->SubscribeByCriteria(1, {0x20, 0x81}, first);
  Sections()->SubscribeByFilter(2, {0x20, {0x80}, {0xfd}}, second);
  Sections()->SubscribeByCriteria(3, {0x00, 0x00}, pat);
  EXPECT_THAT(ToldIn(1s),
              ElementsAre("section 3 1 20 0", "section 2 1 12 128", "section 1 0 4096 129", "section 2 1 12 130"));
}

TEST_F(BroadcastPlayer, TellsPesPackets) {
  ts::Stream stream;
  AddTables(stream);
  stream.Pes(kVideo, ts::Pes(0xe0, {0x1ffffffff, ts::kNoPts, true}, ts::Text("unbounded")));
  stream.Pes(kAudio, ts::Pes(0xc0, {}, ts::Text("sound")));
  stream.Pes(kVideo, ts::Pes(0xe0, {3, 1}, ts::Text("next")));
  ASSERT_TRUE(Open(stream));
  SubscribePes();
  EXPECT_THAT(ToldIn(1s), ElementsAre("pes 258 -1 sound", "pes 257 8589934591 unbounded", "pes 257 3 next"));
}

TEST_F(BroadcastPlayer, TellsTeletextSubtitles) {
  ts::Stream stream;
  AddTables(stream);
  stream.Pes(kTeletext, ts::Pes(0xbd, {90},
                                ts::TeletextPayload({ts::TeletextHeader(0x888), ts::TeletextRow(0x888, 20, " Guten "),
                                                     ts::TeletextRow(0x888, 22, "Abend"), ts::TeletextHeader(0x8ff)})));
  stream.Pes(kTeletext,
             ts::Pes(0xbd, {180}, ts::TeletextPayload({ts::TeletextHeader(0x888), ts::TeletextHeader(0x8ff)})));
  stream.Pes(kTeletext, ts::Pes(0xbd, {270},
                                ts::TeletextPayload({ts::TeletextHeader(0x100), ts::TeletextRow(0x100, 1, "Index")})));
  stream.Pes(kTeletext, ts::Pes(0xbd, {360},
                                ts::TeletextPayload({ts::TeletextHeader(0x888), ts::TeletextRow(0x888, 22, "Ende")})));
  ASSERT_TRUE(Open(stream));
  SubscribeCaptions();
  EXPECT_THAT(ToldIn(1s), ElementsAre("caption deu 90 Guten\nAbend", "caption deu 180 ", "caption deu 360 Ende"));
}

TEST_F(BroadcastPlayer, DecodesTheFirstEightCaptionStreams) {
  const ts::Bytes pages = ts::Descriptor(0x56, ts::Text("deu") + ts::Bytes{0x10, 0x88});
  std::vector<ts::Es> streams;
  for (unsigned pid = 0x200; pid < 0x20a; ++pid) {
    streams.push_back({0x06, pid, pages});
  }
  ts::Stream stream;
  stream.Section(0, ts::Pat(3, {{1, 0x100}}));
  stream.Section(0x100, ts::Pmt(1, kVideo, streams));
  for (unsigned pid = 0x200; pid < 0x20a; ++pid) {
    stream.Pes(pid, ts::Pes(0xbd, {pid},
                            ts::TeletextPayload({ts::TeletextHeader(0x888), ts::TeletextRow(0x888, 20, "A"),
                                                 ts::TeletextHeader(0x8ff)})));
  }
  ASSERT_TRUE(Open(stream));
  SubscribeCaptions();
  const std::vector<std::string> told = ToldIn(1s);
  EXPECT_EQ(told.size(), 8U);
  EXPECT_EQ(told.back(), "caption deu 519 A");
}

TEST_F(BroadcastPlayer, TellsLine21InDisplayOrder) {
  ts::Stream stream;
  AddTables(stream);
  // Pop-on: "HI" is written and flipped, then erased. The pictures come in decoding order.
  const auto picture = [&](std::uint64_t pts, std::uint64_t dts, const std::vector<ts::Pair> &pairs) {
    stream.Pes(kVideo, ts::Pes(0xe0, {pts, dts}, ts::Mpeg2Picture(0, pairs)));
  };
  picture(3000, 0, {{0, 0x14, 0x20}});
  picture(12000, 3000, {{0, 0x14, 0x2f}});
  picture(6000, ts::kNoPts, {{0, 0x14, 0x70}});
  picture(9000, ts::kNoPts, {{0, 'H', 'I'}});
  picture(21000, 12000, {{0, 0x14, 0x2c}});
  picture(15000, ts::kNoPts, {{0, 0x14, 0x2f}}); // the repetition of the flip
  ASSERT_TRUE(Open(stream));
  SubscribeCaptions();
  EXPECT_THAT(ToldIn(1s), ElementsAre("caption eng 12000 HI", "caption eng 21000 "));
}

TEST_F(BroadcastPlayer, TellsModulesOfCarousels) {
  const ts::Module one{1, 0, ts::Text("first module")};
  const ts::Module two{2, 0, ts::Text("second")};
  const ts::Module newer{1, 1, ts::Text("FIRST")};
  ts::Stream stream;
  AddTables(stream);
  const auto cycle = [&](const std::vector<ts::Module> &modules, double time) {
    stream.Section(kCarousel, ts::Dii(9, 5, modules));
    for (const ts::Module &module : modules) {
      for (unsigned block = 0; block * 5 < module.data.size(); ++block) {
        stream.Section(kCarousel, ts::Ddb(9, 5, module, block));
      }
    }
    stream.Pcr(kVideo, time);
  };
  for (int i = 0; i < 3; ++i) {
    cycle({one, two}, i);
  }
  cycle({newer, two}, 3);
  ASSERT_TRUE(Open(stream));
  Attach("dvb://2.3.1/0A", DSM_ATTACH_NORMAL);
  EXPECT_THAT(ToldIn(500ms), ElementsAre("module 0 0 1 0 first module", "module 0 0 2 0 second"));
  Attach("dvb://0002.0003.0001/a", DSM_ATTACH_CACHED);
  EXPECT_THAT(ToldIn(0ms), ElementsAre("module 0 0 1 0 first module", "module 0 0 2 0 second"));
  Attach("dvb://2.3.1/a", DSM_ATTACH_NORMAL);
  for (const char *target : {"", "dvb://", "dvb://2.3.1", "dvb://2.3.1/", "dvb://2.3.1/b", "dvb://2.3.2/a",
                             "dvb://9.3.1/a", "dvb://2.3.1/a/", "dvb://2.3.1/123456789"}) {
    Attach(target, DSM_ATTACH_CACHED);
  }
  EXPECT_THAT(ToldIn(0ms), IsEmpty());
  EXPECT_THAT(ToldIn(1s), ElementsAre("module 0 0 1 0 first module", "module 0 0 2 0 second"));
  EXPECT_THAT(ToldIn(1h),
              testing::UnorderedElementsAre("module 0 0 1 1 FIRST", "module 0 0 1 1 FIRST", "module 0 0 1 1 FIRST"));
}

TEST_F(BroadcastPlayer, KeepsTheModulesOfTheFirstCarousels) {
  std::vector<ts::Es> streams;
  for (unsigned tag = 1; tag <= 66; ++tag) {
    streams.push_back({0x0b, 0x200 + tag, ts::Descriptor(0x52, {static_cast<std::uint8_t>(tag)})});
  }
  const ts::Module module{1, 0, ts::Text("module")};
  ts::Stream stream;
  stream.Section(0, ts::Pat(3, {{1, 0x100}}));
  stream.Section(0x11, ts::Sdt(3, 2, {}));
  stream.Section(0x100, ts::Pmt(1, kVideo, streams));
  for (int i = 0; i < 3; ++i) {
    for (const unsigned tag : {64U, 66U}) {
      stream.Section(0x200 + tag, ts::Dii(9, 10, {module}));
      stream.Section(0x200 + tag, ts::Ddb(9, 10, module, 0));
    }
    stream.Pcr(kVideo, i);
  }
  ASSERT_TRUE(Open(stream));
  broadcast::Advance(500ms);
  Attach("dvb://2.3.1/42", DSM_ATTACH_CACHED); // the 66th
  EXPECT_THAT(ToldIn(0ms), IsEmpty());
  Attach("dvb://2.3.1/40", DSM_ATTACH_CACHED); // the 64th
  EXPECT_THAT(ToldIn(0ms), ElementsAre("module 0 0 1 0 module"));
  EXPECT_THAT(ToldIn(1s), ElementsAre("module 0 0 1 0 module"));
}

TEST_F(BroadcastPlayer, LeavesWhatIsScriptedAsItIs) {
  ts::Stream stream;
  AddTables(stream);
  stream.Section(0x12, ts::Eit(0x4e, {2, 3, 1}, {EventAt(1, 0, "News")}));
  stream.Pcr(kVideo, 0);
  stream.Pcr(kVideo, 1);
  stream.Section(0x20, ts::LongSection(0x80, 0, {}, {}));
  stream.Section(0x12, ts::Eit(0x4e, {2, 3, 1}, {EventAt(2, 1, "Film")}, {1}));
  stream.Pes(kAudio, ts::Pes(0xc0, {5}, ts::Text("broadcast")));
  stream.Pcr(kVideo, 2);
  ASSERT_TRUE(Open(stream));
  SubscribeSignal(SIGNAL_TYPE_LOCK);
  SubscribePes();
  SubscribeCaptions();
  int section = 0, present = 0;
  Sections()->SubscribeByFilter(7, {0x20, {}, {}}, section);
  Programs()->SubscribeProgramListPF(0, kServiceOne, SUBSCRIBE_TYPE_CHANGES, present);
  EXPECT_THAT(ToldIn(100ms), testing::UnorderedElementsAre("lock 1 0", "present 0 1 News"));
  lumio::tv::EmitSignal(SIGNAL_TYPE_LOCK, PROFILE_MAIN, 0, {0, 5});
  TSPESData data;
  data.payload = ts::Text("scripted");
  lumio::tv::EmitPes(data);
  lumio::tv::EmitSection(0x20, {0x99, 1, 2}, true);
  TCProgramData programme;
  programme.eventId = 99;
  programme.title = "Scripted";
  lumio::tv::EmitProgram(present, PROGRAM_CHANGE_PRESENT, programme, 0);
  TSCaption caption;
  caption.language = 'e' << 16 | 'n' << 8 | 'g';
  caption.payload = ts::Text("scripted");
  lumio::tv::EmitCaption(caption);
  EXPECT_THAT(ToldIn(0ms), testing::UnorderedElementsAre("lock 0 5", "pes 0 0 scripted", "section 7 1 3 153",
                                                         "present 0 99 Scripted", "caption eng 0 scripted"));
  EXPECT_THAT(ToldIn(1s), // as if nothing had been scripted
              testing::UnorderedElementsAre("section 7 1 12 128", "present 0 2 Film", "pes 258 5 broadcast"));
}
