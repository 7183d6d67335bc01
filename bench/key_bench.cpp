// Compares the library with plain Ecore event handlers: delivering a key, and adding and deleting a handler.
#include <kevent.h>

#include <Ecore.h>
#include <Ecore_Input.h>
#include <benchmark/benchmark.h>

#include <deque>
#include <string>

namespace {

constexpr int kPriorities = 7;

// The work of one handler: it counts the call, and consumes the key or passes it on.
struct Work {
  int *asked;
  bool consumes;
};

// Which handler consumes the key.
enum Consumer { kFirst, kLast, kNobody };

void Keep(void *, void *) {}

// Plain Ecore handlers. They use an event type of their own, because the library stays installed for keys.
class Bare {
public:
  using Handler = Ecore_Event_Handler *;

  Handler Add(int, Work *work) { return ecore_event_handler_add(type_, OnKey, work); }
  void Delete(Handler handler) { ecore_event_handler_del(handler); }
  int Type() const { return type_; }

private:
  static Eina_Bool OnKey(void *data, int, void *) {
    const Work *work = static_cast<Work *>(data);
    ++*work->asked;
    return work->consumes ? ECORE_CALLBACK_DONE : ECORE_CALLBACK_PASS_ON;
  }

  int type_ = ecore_event_type_new();
};

class Library {
public:
  using Handler = lumio_kevent_handler *;

  ~Library() { lumio_kevent_fini(kevent_); }

  Handler Add(int priority, Work *work) {
    return lumio_kevent_handler_add(kevent_, LUMIO_KEVENT_PRESS, priority, OnKey, work);
  }
  void Delete(Handler handler) { lumio_kevent_handler_del(handler); }
  int Type() const { return ECORE_EVENT_KEY_DOWN; }

private:
  static int OnKey(lumio_kevent *, lumio_kevent_type, void *, void *data) {
    const Work *work = static_cast<Work *>(data);
    ++*work->asked;
    return work->consumes ? 0 : 1;
  }

  lumio_kevent *kevent_ = lumio_kevent_init("bench");
};

// Handlers in the order of their priorities, the same number at each priority.
template <class Side> class Handlers {
public:
  Handlers(Side *side, int count, Consumer consumer) : side_(side) {
    for (int i = 0; i < count; ++i) {
      const bool consumes = (consumer == kFirst && i == 0) || (consumer == kLast && i == count - 1);
      Work *work = &work_.emplace_back(Work{&asked_, consumes});
      handlers_.push_back(side->Add(i * kPriorities / count, work));
    }
  }

  ~Handlers() {
    for (const typename Side::Handler handler : handlers_) {
      side_->Delete(handler);
    }
  }

  // Adds a handler and deletes the oldest one.
  void Renew() {
    handlers_.push_back(side_->Add(0, &work_.front()));
    side_->Delete(handlers_.front());
    handlers_.pop_front();
  }

  int Asked() const { return asked_; }

private:
  Side *side_;
  int asked_ = 0;
  std::deque<Work> work_;
  std::deque<typename Side::Handler> handlers_;
};

// Measures one iteration of the main loop that delivers one press. The press carries the current time, so the library
// never drops it for its age.
template <class Side> void Key(benchmark::State &state, Consumer consumer) {
  Side side;
  const int count = static_cast<int>(state.range(0));
  const Handlers<Side> handlers(&side, count, consumer);
  Ecore_Event_Key key{};
  key.keyname = "XF86AudioRaiseVolume";
  while (state.KeepRunning()) {
    key.timestamp = static_cast<unsigned>(static_cast<long long>(ecore_time_get() * 1000));
    ecore_event_add(side.Type(), &key, Keep, nullptr);
    ecore_main_loop_iterate();
  }
  const benchmark::IterationCount expected = state.iterations() * (consumer == kFirst ? 1 : count);
  if (handlers.Asked() != expected) {
    state.SkipWithError("keys were lost");
  }
}

// Measures adding one handler and deleting another while many are registered.
template <class Side> void AddAndDelete(benchmark::State &state) {
  Side side;
  Handlers<Side> handlers(&side, static_cast<int>(state.range(0)), kNobody);
  while (state.KeepRunning()) {
    handlers.Renew();
  }
}

// The benchmark library owns the registered benchmarks.
// NOLINTBEGIN(clang-analyzer-cplusplus.NewDeleteLeaks)
template <class Side> void Register(const std::string &side) {
  const std::pair<const char *, Consumer> consumers[] = {{"first", kFirst}, {"last", kLast}, {"nobody", kNobody}};
  for (const auto &[name, consumer] : consumers) {
    benchmark::RegisterBenchmark(("key_consumed_by_" + std::string(name) + side).c_str(), Key<Side>, consumer)
        ->RangeMultiplier(10)
        ->Range(1, 1000);
  }
  benchmark::RegisterBenchmark(("handler_add_and_delete" + side).c_str(), AddAndDelete<Side>)
      ->RangeMultiplier(10)
      ->Range(10, 10000);
}
// NOLINTEND(clang-analyzer-cplusplus.NewDeleteLeaks)

const bool g_registered = [] {
  Register<Bare>("/bare");
  Register<Library>("/library");
  return true;
}();

} // namespace
