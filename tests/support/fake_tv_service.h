// A TV service that records what it is asked and answers as it is told. It notifies nobody by itself: a test calls what
// the library gave it, from any thread.
#pragma once

#include <TVServiceAPI.h>

#include <atomic>
#include <functional>
#include <map>
#include <string>
#include <vector>

struct FakeTvService {
  // Answers by the name of the call, for example {"signal.Subscribe", 0}. Others succeed: factories and Destroy...
  // answer 0, everything else 1.
  std::map<std::string, int> answers;
  // What runs inside a call, by its name.
  std::map<std::string, std::function<void()>> during;
  // Whether the factories leave the caller's pointer as it is.
  bool gives_nothing = false;
  // The handle of the next successful subscription; each takes one.
  std::atomic<int> next_handle{100};

  // What the library gave.
  int (*on_signal)(ESignalType, EProfile, unsigned short, TSSignalData, void *) = nullptr;
  void (*on_program)(EProgramChangeType, TCProgramData *, int, int) = nullptr;
  void (*on_section)(bool, unsigned short, unsigned char *, int) = nullptr;
  void (*on_pes)(TSPESData &, void *) = nullptr;
  void (*on_caption)(TSCaption &, void *) = nullptr;
  void (*on_dsm)(TSDsmMessage &) = nullptr;
  void *signal_user_data = nullptr; // of the last subscription
  int section_key = 0;              // of the last subscription
  void *dsm_user_data = nullptr;    // of the last session
};

extern FakeTvService fake_tv_service;

// The calls so far with their arguments, for example "signal.Subscribe(5, 1, 0)", with " locked" behind those that were
// made while a lock of fake_kestrel was held.
std::vector<std::string> ServiceCalls();

void ClearServiceCalls();

// The objects that the factories give.
ISignalSubscriber *FakeSignalSubscriber();
IProgramSubscriber *FakeProgramSubscriber();
ISectionSubscriber *FakeSectionSubscriber();
IPESDataSubscriber *FakePesSubscriber();
IDataSubscriber *FakeCaptionSubscriber();
IDsm *FakeDsm();
