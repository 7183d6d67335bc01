// A TV service that records its calls and gives the answers that a test has set. It sends no notifications: a test
// calls the library's callbacks itself, from any thread.
#pragma once

#include <TVServiceAPI.h>

#include <atomic>
#include <functional>
#include <map>
#include <string>
#include <vector>

struct FakeTvService {
  // Answers by the name of the call, for example {"signal.Subscribe", 0}. All other calls succeed: factories and
  // Destroy... return 0, the rest 1.
  std::map<std::string, int> answers;
  // Functions that run inside a call, by its name.
  std::map<std::string, std::function<void()>> during;
  // True if the factories leave the caller's pointer unchanged.
  bool gives_nothing = false;
  // The handle of the next successful subscription; counts up.
  std::atomic<int> next_handle{100};

  // The library's callbacks, and what it passed with the latest subscription or session.
  int (*on_signal)(ESignalType, EProfile, unsigned short, TSSignalData, void *) = nullptr;
  void (*on_program)(EProgramChangeType, TCProgramData *, int, int) = nullptr;
  void (*on_section)(bool, unsigned short, unsigned char *, int) = nullptr;
  void (*on_pes)(TSPESData &, void *) = nullptr;
  void (*on_caption)(TSCaption &, void *) = nullptr;
  void (*on_dsm)(TSDsmMessage &) = nullptr;
  void *signal_user_data = nullptr;
  int section_key = 0;
  void *dsm_user_data = nullptr;
};

extern FakeTvService fake_tv_service;

// The calls so far with their arguments, for example "signal.Subscribe(5, 1, 0)". Calls that were made while a lock of
// fake_kestrel was held end in " locked".
std::vector<std::string> ServiceCalls();

void ClearServiceCalls();

// The objects that the factories return.
ISignalSubscriber *FakeSignalSubscriber();
IProgramSubscriber *FakeProgramSubscriber();
ISectionSubscriber *FakeSectionSubscriber();
IPESDataSubscriber *FakePesSubscriber();
IDataSubscriber *FakeCaptionSubscriber();
IDsm *FakeDsm();
