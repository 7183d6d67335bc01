// The TV service's notifications on their way to a module: from several threads to the main loop, beside other ways to
// a loop; among many subscriptions of other keys; and sections, which stay on their thread, beside a bare lookup.
#include <TVServiceSubscriber.h>

#include <Ecore.h>
#include <benchmark/benchmark.h>
#include <glib.h>
#include <uv.h>

#include <algorithm>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int kMostSenders = 4;
constexpr int kBatch = 4000; // messages of all senders together, so that waking the senders hardly counts
constexpr TSignalInfo kKey = {SIGNAL_TYPE_STRENGTH, PROFILE_MAIN, 0};

// A message from one of the senders.
TSSignalData Message(int sender, int number) { return {number, sender}; }

// Where messages arrive, on the thread of the loop. Sees that each comes once, and a sender's in order.
class Inbox {
public:
  void Expect(int count) { m_due = count; }

  // Returns whether nothing is due any more.
  bool Take(const TSSignalData &message) {
    m_in_order &= message.value == m_next[message.extra]++;
    return --m_due == 0;
  }

  bool InOrder() const { return m_in_order; }

private:
  int m_due = 0;
  int m_next[kMostSenders] = {};
  bool m_in_order = true;
};

// --- Ways to a loop: Send is called on any thread, Receive returns when nothing is due any more ----------------------

class Library {
public:
  explicit Library(Inbox *inbox) : m_inbox(inbox) {
    m_module.SetSignalCallback(OnSignal);
    m_module.SubscribeSignal(kKey.signalType, this, kKey.profile, kKey.screenId);
  }
  ~Library() { CTVServiceSubscriber::ReleaseAll(); }
  Library(const Library &) = delete;
  Library &operator=(const Library &) = delete;

  void SubscribeToOthers(int count) {
    for (int i = 1; i <= count; ++i) {
      m_module.SubscribeSignal(kKey.signalType, this, kKey.profile, static_cast<unsigned short>(kKey.screenId + i));
    }
  }

  // As the TV service does it.
  void Send(TSSignalData message) {
    CTVServiceSubscriber::t_SignalCallback(kKey.signalType, kKey.profile, kKey.screenId, message, nullptr);
  }

  void Receive() { ecore_main_loop_begin(); }

private:
  static int OnSignal(ESignalType, TSSignalData message, void *library) {
    if (static_cast<Library *>(library)->m_inbox->Take(message)) {
      ecore_main_loop_quit();
    }
    return 0;
  }

  Inbox *m_inbox;
  CTVServiceSubscriber m_module{"bench"};
};

// What the library's rivals send: a record like the library's own.
TSignalEvent Record(TSSignalData message, void *receiver) {
  return {kKey.signalType, message, kKey.profile, kKey.screenId, receiver};
}

class EcoreCallAsync {
public:
  explicit EcoreCallAsync(Inbox *inbox) : m_inbox(inbox) {}

  void Send(TSSignalData message) {
    ecore_main_loop_thread_safe_call_async(OnCall, new TSignalEvent(Record(message, this)));
  }
  void Receive() { ecore_main_loop_begin(); }

private:
  static void OnCall(void *data) {
    const std::unique_ptr<TSignalEvent> record(static_cast<TSignalEvent *>(data));
    if (static_cast<EcoreCallAsync *>(record->userData)->m_inbox->Take(record->signalData)) {
      ecore_main_loop_quit();
    }
  }

  Inbox *m_inbox;
};

// The library's records travel on as Ecore events, which cost more than a call: this is what Ecore itself takes for it.
class EcoreEvent {
public:
  explicit EcoreEvent(Inbox *inbox)
      : m_inbox(inbox), m_type(ecore_event_type_new()), m_handler(ecore_event_handler_add(m_type, OnEvent, nullptr)) {}
  ~EcoreEvent() { ecore_event_handler_del(m_handler); }
  EcoreEvent(const EcoreEvent &) = delete;
  EcoreEvent &operator=(const EcoreEvent &) = delete;

  void Send(TSSignalData message) {
    void *memory = malloc(sizeof(TSignalEvent)); // released by the event loop
    ecore_main_loop_thread_safe_call_async(OnCall, new (memory) TSignalEvent(Record(message, this)));
  }
  void Receive() { ecore_main_loop_begin(); }

private:
  static void OnCall(void *record) {
    const auto *self = static_cast<EcoreEvent *>(static_cast<TSignalEvent *>(record)->userData);
    ecore_event_add(self->m_type, record, nullptr, nullptr);
  }

  static Eina_Bool OnEvent(void *, int, void *event) {
    const auto *record = static_cast<TSignalEvent *>(event);
    if (static_cast<EcoreEvent *>(record->userData)->m_inbox->Take(record->signalData)) {
      ecore_main_loop_quit();
    }
    return ECORE_CALLBACK_DONE;
  }

  Inbox *m_inbox;
  int m_type;
  Ecore_Event_Handler *m_handler;
};

class GLibInvoke {
public:
  explicit GLibInvoke(Inbox *inbox) : m_inbox(inbox) {}
  ~GLibInvoke() {
    g_main_loop_unref(m_loop);
    g_main_context_unref(m_context);
  }
  GLibInvoke(const GLibInvoke &) = delete;
  GLibInvoke &operator=(const GLibInvoke &) = delete;

  void Send(TSSignalData message) {
    g_main_context_invoke_full(m_context, G_PRIORITY_DEFAULT, OnInvoke, new TSignalEvent(Record(message, this)),
                               [](void *record) { delete static_cast<TSignalEvent *>(record); });
  }
  void Receive() { g_main_loop_run(m_loop); }

private:
  static gboolean OnInvoke(void *data) {
    const auto *record = static_cast<TSignalEvent *>(data);
    const auto *self = static_cast<GLibInvoke *>(record->userData);
    if (self->m_inbox->Take(record->signalData)) {
      g_main_loop_quit(self->m_loop);
    }
    return G_SOURCE_REMOVE;
  }

  Inbox *m_inbox;
  GMainContext *m_context = g_main_context_new();
  GMainLoop *m_loop = g_main_loop_new(m_context, FALSE);
};

// libuv takes a wake-up but no message to the loop: the messages are in a queue.
class UvAsync {
public:
  explicit UvAsync(Inbox *inbox) : m_inbox(inbox) {
    uv_loop_init(&m_loop);
    uv_async_init(&m_loop, &m_async, OnWakeUp);
    m_async.data = this;
  }
  ~UvAsync() {
    uv_close(reinterpret_cast<uv_handle_t *>(&m_async), nullptr);
    uv_run(&m_loop, UV_RUN_DEFAULT);
    uv_loop_close(&m_loop);
  }
  UvAsync(const UvAsync &) = delete;
  UvAsync &operator=(const UvAsync &) = delete;

  void Send(TSSignalData message) {
    auto record = std::make_unique<TSignalEvent>(Record(message, this));
    {
      const std::lock_guard<std::mutex> lock(m_mutex);
      m_queue.push_back(std::move(record));
    }
    uv_async_send(&m_async);
  }
  void Receive() { uv_run(&m_loop, UV_RUN_DEFAULT); }

private:
  static void OnWakeUp(uv_async_t *async) { static_cast<UvAsync *>(async->data)->Drain(); }

  void Drain() {
    {
      const std::lock_guard<std::mutex> lock(m_mutex);
      m_drained.swap(m_queue);
    }
    for (std::unique_ptr<TSignalEvent> &record : m_drained) {
      if (m_inbox->Take(record->signalData)) {
        uv_stop(&m_loop);
      }
      record.reset();
    }
    m_drained.clear();
  }

  Inbox *m_inbox;
  uv_loop_t m_loop;
  uv_async_t m_async;
  std::mutex m_mutex;
  std::vector<std::unique_ptr<TSignalEvent>> m_queue;   // guarded by the mutex
  std::vector<std::unique_ptr<TSignalEvent>> m_drained; // kept for its memory
};

// --- From several threads --------------------------------------------------------------------------------------------

// Threads that each send their share of a batch when told to. Starting and joining them is not part of the measurement.
class Senders {
public:
  // `send` is given the sender and the batch, both counted from 0.
  Senders(int count, const std::function<void(int, int)> &send) {
    for (int sender = 0; sender < count; ++sender) {
      m_threads.emplace_back([this, send, sender] {
        for (int batch = 0; WaitFor(batch); ++batch) {
          send(sender, batch);
        }
      });
    }
  }
  ~Senders() {
    Tell([this] { m_ended = true; });
    for (std::thread &thread : m_threads) {
      thread.join();
    }
  }
  Senders(const Senders &) = delete;
  Senders &operator=(const Senders &) = delete;

  void StartBatch() {
    Tell([this] { ++m_started; });
  }

private:
  template <class Change> void Tell(Change change) {
    {
      const std::lock_guard<std::mutex> lock(m_mutex);
      change();
    }
    m_changed.notify_all();
  }

  // Returns whether the batch was started, rather than the end.
  bool WaitFor(int batch) {
    std::unique_lock<std::mutex> lock(m_mutex);
    m_changed.wait(lock, [&] { return m_started > batch || m_ended; });
    return m_started > batch;
  }

  std::mutex m_mutex; // guards what follows
  std::condition_variable m_changed;
  int m_started = 0; // batches
  bool m_ended = false;
  std::vector<std::thread> m_threads;
};

// Messages from threads to a callback on the loop's. An iteration is one message, so the time is what each takes; CPU
// time is that of the loop's thread.
template <class Side> void FromThreads(benchmark::State &state) {
  const int count = static_cast<int>(state.range(0));
  const int share = kBatch / count;
  Inbox inbox;
  Side side(&inbox);
  Senders senders(count, [&side, share](int sender, int batch) {
    for (int number = batch * share; number < (batch + 1) * share; ++number) {
      side.Send(Message(sender, number));
    }
  });
  while (state.KeepRunningBatch(kBatch)) {
    inbox.Expect(kBatch);
    senders.StartBatch();
    side.Receive();
  }
  state.SetItemsProcessed(state.iterations());
  if (!inbox.InOrder()) {
    state.SkipWithError("messages came out of order");
  }
}

void WithSenders(benchmark::internal::Benchmark *from_threads) {
  from_threads->RangeMultiplier(2)->Range(1, kMostSenders)->UseRealTime();
}
BENCHMARK(FromThreads<Library>)->Name("signal_from_threads/library")->Apply(WithSenders);
BENCHMARK(FromThreads<EcoreEvent>)->Name("signal_from_threads/ecore_event_add")->Apply(WithSenders);
BENCHMARK(FromThreads<EcoreCallAsync>)
    ->Name("signal_from_threads/ecore_main_loop_thread_safe_call_async")
    ->Apply(WithSenders);
BENCHMARK(FromThreads<GLibInvoke>)->Name("signal_from_threads/g_main_context_invoke_full")->Apply(WithSenders);
BENCHMARK(FromThreads<UvAsync>)->Name("signal_from_threads/uv_async_send")->Apply(WithSenders);

// --- Among subscriptions of other keys -------------------------------------------------------------------------------

// One notification to a module that has many subscriptions. It is made on the main-loop thread: beside a thread that
// sends, what grows on the loop's could hide.
void AmongOthers(benchmark::State &state) {
  Inbox inbox;
  Library library(&inbox);
  library.SubscribeToOthers(static_cast<int>(state.range(0)));
  int sent = 0;
  while (state.KeepRunningBatch(kBatch)) {
    inbox.Expect(kBatch);
    for (int i = 0; i < kBatch; ++i) {
      library.Send(Message(0, sent++));
    }
    library.Receive();
  }
  state.SetItemsProcessed(state.iterations());
  if (!inbox.InOrder()) {
    state.SkipWithError("notifications came out of order");
  }
}
BENCHMARK(AmongOthers)->Name("signal_among_others/library")->RangeMultiplier(10)->Range(1, 1000);

// --- Sections --------------------------------------------------------------------------------------------------------

benchmark::IterationCount g_sections;

void OnSection(bool, unsigned short, unsigned char *, int) { ++g_sections; }

// The least that leads from a key to a callback which may change what is subscribed.
class BareSections {
public:
  explicit BareSections(int count) {
    for (int key = 0; key < count; ++key) {
      m_callbacks[key] = OnSection;
    }
  }

  int Key(int stream_id) { return stream_id; }

  void Deliver(unsigned char *section, int key) {
    CTVServiceSubscriber::SectionCallback callback = nullptr;
    {
      const std::lock_guard<std::mutex> lock(m_mutex);
      const auto found = m_callbacks.find(key);
      callback = found == m_callbacks.end() ? nullptr : found->second;
    }
    if (callback) {
      callback(true, 0, section, key);
    }
  }

private:
  std::mutex m_mutex;
  std::map<int, CTVServiceSubscriber::SectionCallback> m_callbacks;
};

class LibrarySections {
public:
  explicit LibrarySections(int count) {
    m_module.SetSectionCallback(OnSection);
    for (int i = 0; i < count; ++i) {
      int handle = 0;
      m_module.SubscribeSection(static_cast<short>(i), {}, handle);
    }
  }
  ~LibrarySections() { CTVServiceSubscriber::ReleaseAll(); }
  LibrarySections(const LibrarySections &) = delete;
  LibrarySections &operator=(const LibrarySections &) = delete;

  int Key(int stream_id) {
    return CTVServiceSubscriber::m_GetSubscriber("bench", "section")->m_GetKey(static_cast<short>(stream_id));
  }

  void Deliver(unsigned char *section, int key) { CTVServiceSubscriber::t_SectionCallback(true, 0, section, key); }

private:
  CTVServiceSubscriber m_module{"bench"};
};

// One section to the callback of its stream, all streams taking turns.
template <class Side> void Section(benchmark::State &state) {
  const int count = static_cast<int>(state.range(0));
  Side side(count);
  std::vector<int> keys(static_cast<size_t>(count));
  std::generate(keys.begin(), keys.end(), [&side, stream_id = 0]() mutable { return side.Key(stream_id++); });
  unsigned char section[] = {0x4e, 0xb0, 0x00};
  g_sections = 0;
  size_t turn = 0;
  while (state.KeepRunning()) {
    side.Deliver(section, keys[turn]);
    turn = turn + 1 == keys.size() ? 0 : turn + 1;
  }
  if (g_sections != state.iterations()) {
    state.SkipWithError("sections were lost");
  }
}
BENCHMARK(Section<BareSections>)->Name("section/bare")->RangeMultiplier(10)->Range(1, 100);
BENCHMARK(Section<LibrarySections>)->Name("section/library")->RangeMultiplier(10)->Range(1, 100);

} // namespace
