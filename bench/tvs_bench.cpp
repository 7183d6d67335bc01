// Measures the TV service's notifications on their way to a module:
// - from several threads to the main loop, compared with other main loops;
// - among many subscriptions;
// - sections, which stay on their thread, compared with a plain lookup.
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
constexpr int kBatch = 4000; // messages of all senders together; many, so that waking the senders hardly counts
constexpr TSignalInfo kKey = {SIGNAL_TYPE_STRENGTH, PROFILE_MAIN, 0};

// A message from one of the senders.
TSSignalData Message(int sender, int number) { return {number, sender}; }

// Receives the messages on the loop's thread. Checks that each arrives once, and those of one sender in order.
class Inbox {
public:
  void Expect(int count) { due_ = count; }

  // Returns whether this was the last message of the batch.
  bool Take(const TSSignalData &message) {
    in_order_ &= message.value == next_[message.extra]++;
    return --due_ == 0;
  }

  bool InOrder() const { return in_order_; }

private:
  int due_ = 0;
  int next_[kMostSenders] = {};
  bool in_order_ = true;
};

// --- Ways to a loop: any thread calls Send; Receive returns after the last message of the batch ----------------------

class Library {
public:
  explicit Library(Inbox *inbox) : inbox_(inbox) {
    module_.SetSignalCallback(OnSignal);
    module_.SubscribeSignal(kKey.signalType, this, kKey.profile, kKey.screenId);
  }
  ~Library() { CTVServiceSubscriber::ReleaseAll(); }
  Library(const Library &) = delete;
  Library &operator=(const Library &) = delete;

  void SubscribeToOthers(int count) {
    for (int i = 1; i <= count; ++i) {
      module_.SubscribeSignal(kKey.signalType, this, kKey.profile, static_cast<unsigned short>(kKey.screenId + i));
    }
  }

  // Calls what the TV service calls.
  void Send(TSSignalData message) {
    CTVServiceSubscriber::t_SignalCallback(kKey.signalType, kKey.profile, kKey.screenId, message, nullptr);
  }

  void Receive() { ecore_main_loop_begin(); }

private:
  static int OnSignal(ESignalType, TSSignalData message, void *library) {
    if (static_cast<Library *>(library)->inbox_->Take(message)) {
      ecore_main_loop_quit();
    }
    return 0;
  }

  Inbox *inbox_;
  CTVServiceSubscriber module_{"bench"};
};

// What the other sides send: a record like the library's own.
TSignalEvent Record(TSSignalData message, void *receiver) {
  return {kKey.signalType, message, kKey.profile, kKey.screenId, receiver};
}

class EcoreCallAsync {
public:
  explicit EcoreCallAsync(Inbox *inbox) : inbox_(inbox) {}

  void Send(TSSignalData message) {
    ecore_main_loop_thread_safe_call_async(OnCall, new TSignalEvent(Record(message, this)));
  }
  void Receive() { ecore_main_loop_begin(); }

private:
  static void OnCall(void *data) {
    const std::unique_ptr<TSignalEvent> record(static_cast<TSignalEvent *>(data));
    if (static_cast<EcoreCallAsync *>(record->userData)->inbox_->Take(record->signalData)) {
      ecore_main_loop_quit();
    }
  }

  Inbox *inbox_;
};

// The library posts its records as Ecore events, which cost more than a call. This side measures Ecore's share of that.
class EcoreEvent {
public:
  explicit EcoreEvent(Inbox *inbox)
      : inbox_(inbox), type_(ecore_event_type_new()), handler_(ecore_event_handler_add(type_, OnEvent, nullptr)) {}
  ~EcoreEvent() { ecore_event_handler_del(handler_); }
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
    ecore_event_add(self->type_, record, nullptr, nullptr);
  }

  static Eina_Bool OnEvent(void *, int, void *event) {
    const auto *record = static_cast<TSignalEvent *>(event);
    if (static_cast<EcoreEvent *>(record->userData)->inbox_->Take(record->signalData)) {
      ecore_main_loop_quit();
    }
    return ECORE_CALLBACK_DONE;
  }

  Inbox *inbox_;
  int type_;
  Ecore_Event_Handler *handler_;
};

class GLibInvoke {
public:
  explicit GLibInvoke(Inbox *inbox) : inbox_(inbox) {}
  ~GLibInvoke() {
    g_main_loop_unref(loop_);
    g_main_context_unref(context_);
  }
  GLibInvoke(const GLibInvoke &) = delete;
  GLibInvoke &operator=(const GLibInvoke &) = delete;

  void Send(TSSignalData message) {
    g_main_context_invoke_full(context_, G_PRIORITY_DEFAULT, OnInvoke, new TSignalEvent(Record(message, this)),
                               [](void *record) { delete static_cast<TSignalEvent *>(record); });
  }
  void Receive() { g_main_loop_run(loop_); }

private:
  static gboolean OnInvoke(void *data) {
    const auto *record = static_cast<TSignalEvent *>(data);
    const auto *self = static_cast<GLibInvoke *>(record->userData);
    if (self->inbox_->Take(record->signalData)) {
      g_main_loop_quit(self->loop_);
    }
    return G_SOURCE_REMOVE;
  }

  Inbox *inbox_;
  GMainContext *context_ = g_main_context_new();
  GMainLoop *loop_ = g_main_loop_new(context_, FALSE);
};

// libuv sends a wake-up but no message to the loop, so the messages wait in a queue.
class UvAsync {
public:
  explicit UvAsync(Inbox *inbox) : inbox_(inbox) {
    uv_loop_init(&loop_);
    uv_async_init(&loop_, &async_, OnWakeUp);
    async_.data = this;
  }
  ~UvAsync() {
    uv_close(reinterpret_cast<uv_handle_t *>(&async_), nullptr);
    uv_run(&loop_, UV_RUN_DEFAULT);
    uv_loop_close(&loop_);
  }
  UvAsync(const UvAsync &) = delete;
  UvAsync &operator=(const UvAsync &) = delete;

  void Send(TSSignalData message) {
    auto record = std::make_unique<TSignalEvent>(Record(message, this));
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      queue_.push_back(std::move(record));
    }
    uv_async_send(&async_);
  }
  void Receive() { uv_run(&loop_, UV_RUN_DEFAULT); }

private:
  static void OnWakeUp(uv_async_t *async) { static_cast<UvAsync *>(async->data)->Drain(); }

  void Drain() {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      drained_.swap(queue_);
    }
    for (std::unique_ptr<TSignalEvent> &record : drained_) {
      if (inbox_->Take(record->signalData)) {
        uv_stop(&loop_);
      }
      record.reset();
    }
    drained_.clear();
  }

  Inbox *inbox_;
  uv_loop_t loop_;
  uv_async_t async_;
  std::mutex mutex_;
  std::vector<std::unique_ptr<TSignalEvent>> queue_;   // guarded by the mutex
  std::vector<std::unique_ptr<TSignalEvent>> drained_; // a member, so that it keeps its memory
};

// --- From several threads --------------------------------------------------------------------------------------------

// Threads that each send their share of a batch. The measurement does not include starting and joining them.
class Senders {
public:
  // Calls `send` with the sender and the batch, both counted from 0.
  Senders(int count, const std::function<void(int, int)> &send) {
    for (int sender = 0; sender < count; ++sender) {
      threads_.emplace_back([this, send, sender] {
        for (int batch = 0; WaitFor(batch); ++batch) {
          send(sender, batch);
        }
      });
    }
  }
  ~Senders() {
    Tell([this] { ended_ = true; });
    for (std::thread &thread : threads_) {
      thread.join();
    }
  }
  Senders(const Senders &) = delete;
  Senders &operator=(const Senders &) = delete;

  void StartBatch() {
    Tell([this] { ++started_; });
  }

private:
  template <class Change> void Tell(Change change) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      change();
    }
    changed_.notify_all();
  }

  // Returns true when the batch has started, false at the end.
  bool WaitFor(int batch) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return started_ > batch || ended_; });
    return started_ > batch;
  }

  std::mutex mutex_; // guards what follows
  std::condition_variable changed_;
  int started_ = 0; // batches
  bool ended_ = false;
  std::vector<std::thread> threads_;
};

// Measures messages from threads to a callback on the loop's thread. An iteration is one message. CPU time is that of
// the loop's thread.
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

// --- Among other subscriptions ---------------------------------------------------------------------------------------

// Measures one notification to a module that has many subscriptions. The main-loop thread sends it, because the work of
// a sending thread could hide a cost that grows on the loop's.
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

// The least work that leads from a key to a callback, if the callback may change the subscriptions.
class BareSections {
public:
  explicit BareSections(int count) {
    for (int key = 0; key < count; ++key) {
      callbacks_[key] = OnSection;
    }
  }

  int Key(int stream_id) { return stream_id; }

  void Deliver(unsigned char *section, int key) {
    CTVServiceSubscriber::SectionCallback callback = nullptr;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      const auto found = callbacks_.find(key);
      callback = found == callbacks_.end() ? nullptr : found->second;
    }
    if (callback) {
      callback(true, 0, section, key);
    }
  }

private:
  std::mutex mutex_;
  std::map<int, CTVServiceSubscriber::SectionCallback> callbacks_;
};

class LibrarySections {
public:
  explicit LibrarySections(int count) {
    module_.SetSectionCallback(OnSection);
    for (int i = 0; i < count; ++i) {
      int handle = 0;
      module_.SubscribeSection(static_cast<short>(i), {}, handle);
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
  CTVServiceSubscriber module_{"bench"};
};

// Measures one section to the callback of its stream. The streams take turns.
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
