// Modules for lumio-trace to check. The argument selects what they do, mostly mistakes.
#include <Ecore.h>
#include <Ecore_Input.h>
#include <LumioStateSubscriber.h>
#include <PvrServiceSubscriber.h>
#include <TVServiceSubscriber.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <kevent.h>
#include <lumio-banner-state.h>
#include <lumio-host/pvr-control.h>
#include <lumio-host/tv-control.h>
#include <unistd.h>
#include <vconf.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <thread>

enum ELUMIO_STATE : int { kLive = 1 };

namespace {

const EProfile kMain = PROFILE_MAIN;

int OnKey(lumio_kevent *, lumio_kevent_type, void *, void *) { return 1; }
int OnLastKey(lumio_kevent *, lumio_kevent_type, void *, void *) {
  ecore_main_loop_quit();
  return 0;
}
int OnSlowKey(lumio_kevent *, lumio_kevent_type, void *, void *) {
  std::this_thread::sleep_for(std::chrono::milliseconds(30));
  return 1;
}
void OnBanner(int, void *) {}
int OnSignal(ESignalType, TSSignalData, void *) { return 0; }
int OnOtherSignal(ESignalType, TSSignalData, void *) { return 0; }
int OnLastSignal(ESignalType, TSSignalData, void *) {
  ecore_main_loop_quit();
  return 0;
}
void OnProgram(EProgramChangeType, TCProgramData *, int, int) {}
void OnSection(bool, unsigned short, unsigned char *, int) {}
void OnPes(TSPESData &, void *) {}
void OnCaption(TSCaption &, void *) {}
void OnDsm(TSDsmMessage &) {}
void OnResult(ps_result_thirdpart, void *) {}
bool OnPvrState(pvr_state_e, void *) { return true; }
void OnState(ELUMIO_STATE, void *) {}
void OnOtherState(ELUMIO_STATE, void *) {}

void RegisterInside(ELUMIO_STATE, void *) {
  CLumioStateSubscriber("inner").RegisterLumioStateChangeCb(OnState, nullptr);
}
void AnnounceInside(ELUMIO_STATE, void *) { CLumioStateSubscriber::HandleStateChanged(kLive); }
void RegisterPvrInside(ps_result_thirdpart, void *) {
  CPvrServiceSubscriber("inner").RegisterPvrStateCb(OnPvrState, nullptr);
}

void Send(int type, const char *name, unsigned timestamp) {
  auto *key = static_cast<Ecore_Event_Key *>(calloc(1, sizeof(Ecore_Event_Key)));
  key->keyname = name;
  key->timestamp = timestamp;
  ecore_event_add(type, key, nullptr, nullptr);
}

void Press(const char *name) { Send(ECORE_EVENT_KEY_DOWN, name, 0); }

// Sends a key, and has it handled before the next one.
void SendAlone(int type, const char *name, unsigned timestamp) {
  Send(type, name, timestamp);
  ecore_main_loop_iterate();
}

lumio_kevent *Domain() { return lumio_kevent_init("menu"); }

lumio_kevent_handler *Handler(lumio_kevent *domain) {
  return lumio_kevent_handler_add(domain, LUMIO_KEVENT_PRESS, 0, OnKey, nullptr);
}

void OnThread(const std::function<void()> &action) { std::thread(action).join(); }

void SubscribeSignal(const std::string &name) {
  CTVServiceSubscriber module(name);
  module.SetSignalCallback(OnSignal);
  module.SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, kMain, 0);
}

unsigned Attach(CTVServiceSubscriber &module, CTVServiceSubscriber::DsmCallback callback) {
  unsigned session = 0;
  module.AttachDsm(callback, session, "", DSM_DATA_SERVICE_OBJECT_CAROUSEL, DSM_ATTACH_NORMAL, nullptr, false);
  return session;
}

// --- Correct use -----------------------------------------------------------------------------------------------------

void AskThree() {
  lumio_kevent *volume = lumio_kevent_init("volume");
  Handler(Domain());
  lumio_kevent_handler_add(volume, LUMIO_KEVENT_PRESS, 3, OnSlowKey, nullptr);
  lumio_kevent_handler_add(volume, LUMIO_KEVENT_PRESS, 4, OnLastKey, nullptr);
  Press("Up");
  ecore_main_loop_begin();
}

// The third press comes before the main loop is idle.
void Burst() {
  lumio_kevent_handler_add(Domain(), LUMIO_KEVENT_PRESS, 0, OnKey, nullptr);
  for (const char *name : {"1", "2", "3"}) {
    Press(name);
  }
  ecore_main_loop_iterate();
}

void Tell() {
  CTVServiceSubscriber tuner("tuner");
  tuner.SetSignalCallback(OnLastSignal);
  tuner.SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, kMain, 0);
  lumio::tv::EmitSignal(SIGNAL_TYPE_LOCK, kMain, 0, {1, 2});
  ecore_main_loop_begin();
  printf("own callback kept: %d\n", tuner.m_signalCallback == OnLastSignal);
  CTVServiceSubscriber::ReleaseAll();
  lumio::tv::Shutdown();
}

void AnnounceToBoth() {
  CLumioStateSubscriber light("light");
  light.RegisterLumioStateChangeCb(OnState, nullptr);
  CLumioStateSubscriber::HandleStateChanged(kLive);
  lumio_banner_state_cb_add(3, OnBanner, malloc(1));
  lumio_set_banner_state(3, 1);
  lumio_banner_state_cb_del(3, OnBanner);
  CPvrServiceSubscriber recorder("recorder");
  recorder.RegisterPvrCb(OnResult, nullptr);
  lumio::pvr::StartRecording(1);
  lumio::pvr::Flush();
  lumio::pvr::Shutdown();
}

void AnnounceToTwo() {
  CLumioStateSubscriber("light").RegisterLumioStateChangeCb(OnState, nullptr);
  CLumioStateSubscriber("lamp").RegisterLumioStateChangeCb(OnOtherState, nullptr);
  CLumioStateSubscriber::HandleStateChanged(kLive);
  CPvrServiceSubscriber("recorder").RegisterPvrStateCb(OnPvrState, nullptr);
}

void Storm(int count) {
  CTVServiceSubscriber tuner("tuner");
  tuner.SetSignalCallback(OnSignal);
  tuner.SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, kMain, 0);
  for (int i = 0; i < count; ++i) {
    lumio::tv::EmitSignal(SIGNAL_TYPE_LOCK, kMain, 0, {i, 0});
  }
  lumio::tv::Flush();
  ecore_main_loop_iterate();
  CTVServiceSubscriber::ReleaseAll();
  lumio::tv::Shutdown();
}

// A key for each thing that can become of it. A press that is older than the first one is stale.
void Outcomes() {
  constexpr unsigned kFirst = 20000; // milliseconds
  constexpr unsigned kOlder = 10000;
  lumio_kevent *menu = Domain();
  SendAlone(ECORE_EVENT_KEY_DOWN, "Nobody", kFirst);
  Handler(menu);
  SendAlone(ECORE_EVENT_KEY_DOWN, "Declined", kFirst);
  SendAlone(ECORE_EVENT_KEY_DOWN, "Stale", kOlder);
  SendAlone(ECORE_EVENT_KEY_UP, "Stale", kOlder);
  ecore_event_add(ECORE_EVENT_KEY_DOWN, nullptr, nullptr, nullptr);
  ecore_main_loop_iterate();
  vconf_set_int("db/FactoryApp/Aging", 1);
  SendAlone(ECORE_EVENT_KEY_DOWN, "Aging", kFirst);
}

// Sends an event of the type that keys had before Ecore's events were initialised again.
void SendOldType() {
  const int old_type = ECORE_EVENT_KEY_DOWN;
  Handler(Domain());
  ecore_event_shutdown();
  ecore_event_init();
  SendAlone(old_type, "Old", 0);
}

// Sends one notification of each kind but signals.
void TellEach() {
  CTVServiceSubscriber module("each");
  int program = 0, section = 0;
  module.SetProgramCallback(OnProgram);
  module.SubscribeProgram(TCProgramFilteringItem(), program);
  module.SetSectionCallback(OnSection);
  module.SubscribeSection(17, TCSectionCriteriaHelper(), section);
  module.SubscribePES(OnPes, nullptr);
  module.SubscribeCaption(OnCaption, nullptr);
  const unsigned session = Attach(module, OnDsm);
  TSPESData packet;
  packet.payload = {1, 2, 3};
  TSCaption caption;
  caption.payload = {1, 2};
  TSDsmMessage message = {};
  message.sessionHandle = static_cast<int>(session);
  lumio::tv::EmitProgram(program, PROGRAM_CHANGE_PRESENT, TCProgramData(), 5);
  lumio::tv::EmitPes(packet);
  lumio::tv::EmitCaption(caption);
  lumio::tv::EmitSectionTo(section, {1, 2, 3, 4});
  lumio::tv::EmitDsm(message);
  lumio::tv::Flush();
  ecore_main_loop_iterate();
  printf("program %d, session %u\n", program, session);
  CTVServiceSubscriber::ReleaseAll();
  lumio::tv::Shutdown();
}

// The service calls the library, and no module is there.
void TellNobody() {
  TSDsmMessage message = {};
  unsigned char section[1] = {};
  lumio_set_banner_state(4, 1);
  lumio_set_banner_state(4, 0);
  lumio_set_banner_state(32, 1);
  CLumioStateSubscriber::HandleStateChanged(kLive);
  CPvrServiceSubscriber::t_PvrResultCB({}, nullptr);
  CTVServiceSubscriber::t_SignalCallback(SIGNAL_TYPE_LOCK, kMain, 0, {1, 2}, nullptr);
  CTVServiceSubscriber::t_SectionCallback(true, 1, section, 17);
  CTVServiceSubscriber::t_DsmCallback(message);
}

// Leaves one thing of each kind behind, and takes another one back.
void Leave() {
  lumio_kevent *closed = lumio_kevent_init("closed");
  Handler(closed);
  lumio_kevent_fini(closed);
  Handler(Domain());
  lumio_set_banner_state(3, 1);
  lumio_set_banner_state(5, 1);
  static CTVServiceSubscriber tuner("tuner"), teletext("teletext");
  tuner.SetSignalCallback(OnSignal);
  tuner.SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, kMain, 0);
  teletext.SubscribePES(OnPes, nullptr);
  teletext.UnsubscribePES();
  CPvrServiceSubscriber recorder("recorder");
  recorder.RegisterPvrCb(OnResult, nullptr);
  recorder.RegisterPvrStateCb(OnPvrState, nullptr);
  recorder.UnRegisterPvrStateCb(OnPvrState);
  CLumioStateSubscriber light("light");
  light.RegisterLumioStateChangeCb(OnState, nullptr);
  light.RegisterLumioStateChangeCb(OnOtherState, nullptr);
  light.UnregisterLumioStateChangeCb(OnOtherState);
}

// Waits in a handler until the state has been requested.
int OnKeyThatHangs(lumio_kevent *, lumio_kevent_type, void *, void *) {
  puts("hangs");
  fflush(stdout);
  char byte;
  return static_cast<int>(read(0, &byte, 1));
}

void Hang() {
  lumio_kevent_handler_add(Domain(), LUMIO_KEVENT_PRESS, 2, OnKeyThatHangs, nullptr);
  Press("Up");
  ecore_main_loop_iterate();
}

// Ends without Ecore's shutdown, which would block all signals.
void OpenManyDomains() {
  ecore_init();
  ecore_event_init();
  for (int i = 0; i < 3000; ++i) {
    lumio_kevent_init(std::string(100, 'a').c_str());
  }
}

void OnOwnSignal(int) { puts("own handler"); }

// Ecore is initialised and shut down once more, which is when the tracer looks at the signal's handler.
void HandleSignal() {
  std::signal(SIGUSR1, OnOwnSignal);
  raise(SIGUSR1);
  ecore_init();
  ecore_shutdown();
  raise(SIGUSR1);
}

void HandleSignalEvent() {
  const auto print = [](void *, int, void *) -> Eina_Bool {
    puts("own event");
    ecore_main_loop_quit();
    return ECORE_CALLBACK_DONE;
  };
  ecore_event_handler_add(ECORE_EVENT_SIGNAL_USER, print, nullptr);
  raise(SIGUSR1);
  ecore_main_loop_begin();
}

// --- Mistakes --------------------------------------------------------------------------------------------------------

void CloseTwice() {
  lumio_kevent *domain = Domain();
  lumio_kevent_fini(domain);
  lumio_kevent_fini(domain);
}

void DeleteTwice() {
  lumio_kevent_handler *handler = Handler(Domain());
  lumio_kevent_handler_del(handler);
  lumio_kevent_handler_del(handler);
}

void AddToClosed() {
  lumio_kevent *domain = Domain();
  lumio_kevent_fini(domain);
  Handler(domain);
}

// At two places; at the second one two mistakes.
void AddOften() {
  lumio_kevent *domain = Domain();
  for (int i = 0; i < 3; ++i) {
    lumio_kevent_handler_add(domain, LUMIO_KEVENT_PRESS, 7, OnKey, nullptr);
  }
  for (int i = 0; i < 3; ++i) {
    lumio_kevent_handler_add(domain, 2, 7, OnKey, nullptr);
  }
}

int g_static_data;

void BannerOnStack() {
  int data = 0;
  lumio_banner_state_cb_add(3, OnBanner, &data);
}

void BannerInsideBlock() { lumio_banner_state_cb_add(3, OnBanner, static_cast<char *>(malloc(64)) + 8); }

void BannerFreedAgain() {
  void *data = malloc(64);
  lumio_banner_state_cb_add(3, OnBanner, data);
  lumio_banner_state_cb_del(3, OnBanner);
  free(data);
}

void BannerFreedBefore() {
  void *data = malloc(64);
  lumio_banner_state_cb_add(3, OnBanner, data);
  free(data);
}

void SignalSetTwice() {
  CTVServiceSubscriber tuner("tuner");
  tuner.SetSignalCallback(OnSignal);
  tuner.SetSignalCallback(OnSignal);
}

void SignalRefused() {
  lumio::tv::RefuseNext(lumio::tv::Operation::SubscribeSignal, 0);
  SubscribeSignal("tuner");
}

void SignalAfterRelease() {
  CTVServiceSubscriber tuner("tuner");
  tuner.SetSignalCallback(OnSignal);
  CTVServiceSubscriber::ReleaseAll();
  tuner.SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, kMain, 0);
}

void SignalKept() {
  SubscribeSignal("tuner");
  lumio::tv::RefuseNext(lumio::tv::Operation::UnsubscribeSignal, 0);
  CTVServiceSubscriber("tuner").UnsubscribeSignal(SIGNAL_TYPE_LOCK, kMain, 0);
}

void NameShared() {
  SubscribeSignal("tuner");
  CTVServiceSubscriber other("tuner");
  other.SetSignalCallback(OnOtherSignal);
  other.SubscribeSignal(SIGNAL_TYPE_STRENGTH, nullptr, kMain, 0);
}

void ProgramWithoutCallback() {
  CTVServiceSubscriber guide("guide"), list("list");
  int handle = 0;
  guide.SetProgramCallback(OnProgram);
  list.SubscribeProgram(TCProgramFilteringItem(), handle);
}

void ProgramOfAnother() {
  CTVServiceSubscriber guide("guide"), list("list");
  int handle = 0;
  guide.SetProgramCallback(OnProgram);
  list.SetProgramCallback(OnProgram);
  guide.SubscribeProgram(TCProgramFilteringItem(), handle);
  list.UnSubscribeProgram(handle);
}

void ProgramWithoutAnyCallback() {
  int handle = 0;
  CTVServiceSubscriber("list").SubscribeProgram(TCProgramFilteringItem(), handle);
}

void ProgramUnknown() {
  CTVServiceSubscriber guide("guide");
  guide.SetProgramCallback(OnProgram);
  guide.UnSubscribeProgram(77);
}

void SectionSetTwice() {
  CTVServiceSubscriber list("list");
  list.SetSectionCallback(OnSection);
  list.SetSectionCallback(OnSection);
}

void SectionWithoutCallback() {
  int handle = 0;
  CTVServiceSubscriber("list").SubscribeSection(17, TCSectionCriteriaHelper(), handle);
}

void PesRefused() {
  lumio::tv::RefuseNext(lumio::tv::Operation::SubscribePES, 0);
  CTVServiceSubscriber("teletext").SubscribePES(OnPes, nullptr);
  CTVServiceSubscriber("meter").SubscribePES(OnPes, nullptr);
}

void AttachTwice() {
  CTVServiceSubscriber data("data");
  Attach(data, OnDsm);
  Attach(data, OnDsm);
}

void AttachNull() {
  CTVServiceSubscriber data("data");
  Attach(data, nullptr);
}

void DetachUnattached() {
  CTVServiceSubscriber data("data"), other("other");
  Attach(data, OnDsm);
  other.DetachDsm(77);
}

void PvrTwice() {
  CPvrServiceSubscriber("recorder").RegisterPvrCb(OnResult, nullptr);
  CPvrServiceSubscriber("light").RegisterPvrCb(OnResult, nullptr);
}

void PvrInside() {
  CPvrServiceSubscriber("recorder").RegisterPvrCb(RegisterPvrInside, nullptr);
  lumio::pvr::StartRecording(1);
  lumio::pvr::Flush();
}

void PvrKept() {
  CPvrServiceSubscriber recorder("recorder");
  recorder.RegisterPvrCb(OnResult, nullptr);
  lumio::pvr::RefuseNext(lumio::pvr::Call::UnregisterResult, -1);
  recorder.UnRegisterPvrCb(OnResult);
}

void Announce(CLumioStateSubscriber::StateChangedCallback callback) {
  CLumioStateSubscriber("light").RegisterLumioStateChangeCb(callback, nullptr);
  CLumioStateSubscriber::HandleStateChanged(kLive);
}

void Unload() {
  void *module = dlopen(LUMIO_UNLOADED, RTLD_NOW | RTLD_LOCAL);
  reinterpret_cast<void (*)(lumio_kevent *)>(dlsym(module, "module_start"))(Domain());
  dlclose(module);
}

void DetachBeforeAttach() { CTVServiceSubscriber("data").DetachDsm(1); }

// --- The program -----------------------------------------------------------------------------------------------------

void WithEfl(const std::function<void()> &action) {
  ecore_init();
  ecore_event_init();
  action();
  ecore_event_shutdown();
  ecore_shutdown();
}

const std::map<std::string, std::function<void()>> kWithEfl = {
    {"ask-three", AskThree},
    {"burst", Burst},
    {"tell", Tell},
    {"outcomes", Outcomes},
    {"tell-each", TellEach},
    {"tell-nobody", TellNobody},
    {"leave", Leave},
    {"announce", AnnounceToBoth},
    {"announce-to-two", AnnounceToTwo},
    {"old-type", SendOldType},
    {"own-signal-handler", HandleSignal},
    {"own-signal-event", HandleSignalEvent},
    {"no-signal-handler", [] { raise(SIGUSR1); }},
    {"storm", [] { Storm(1000); }},
    {"hang", Hang},
    {"domain-null", [] { lumio_kevent_init(nullptr); }},
    {"x-missing", [] { Domain(); }},
    {"close-null", [] { lumio_kevent_fini(nullptr); }},
    {"close-twice", CloseTwice},
    {"add-to-closed", AddToClosed},
    {"add-to-null", [] { Handler(nullptr); }},
    {"add-null", [] { lumio_kevent_handler_add(Domain(), LUMIO_KEVENT_PRESS, 0, nullptr, nullptr); }},
    {"add-type", [] { lumio_kevent_handler_add(Domain(), 2, 0, OnKey, nullptr); }},
    {"add-often", AddOften},
    {"add-priority", [] { lumio_kevent_handler_add(Domain(), LUMIO_KEVENT_PRESS, 7, OnKey, nullptr); }},
    {"delete-null", [] { lumio_kevent_handler_del(nullptr); }},
    {"delete-foreign", [] { lumio_kevent_handler_del(reinterpret_cast<lumio_kevent_handler *>(&g_static_data)); }},
    {"delete-twice", DeleteTwice},
    {"cursor", lumio_cursor_show_after_movement},
    {"key-thread", [] { OnThread([domain = Domain()] { Handler(domain); }); }},
    {"banner-range", [] { lumio_set_banner_state(32, 1); }},
    {"banner-state", [] { lumio_set_banner_state(3, 2); }},
    {"banner-null", [] { lumio_banner_state_cb_add(3, nullptr, malloc(1)); }},
    {"banner-no-data", [] { lumio_banner_state_cb_add(3, OnBanner, nullptr); }},
    {"banner-static", [] { lumio_banner_state_cb_add(3, OnBanner, &g_static_data); }},
    {"banner-stack", BannerOnStack},
    {"banner-inside", BannerInsideBlock},
    {"banner-freed-again", BannerFreedAgain},
    {"banner-freed-before", BannerFreedBefore},
    {"banner-delete-null", [] { lumio_banner_state_cb_del(3, nullptr); }},
    {"banner-delete-foreign", [] { lumio_banner_state_cb_del(3, OnBanner); }},
    {"banner-thread", [] { OnThread([] { lumio_set_banner_state(3, 1); }); }},
    {"banner-no-place", [] { lumio_get_banner_state(3, nullptr); }},
    {"signal-twice", SignalSetTwice},
    {"signal-without-callback",
     [] { CTVServiceSubscriber("tuner").SubscribeSignal(SIGNAL_TYPE_LOCK, nullptr, kMain, 0); }},
    {"signal-refused", SignalRefused},
    {"signal-after-release", SignalAfterRelease},
    {"signal-kept", SignalKept},
    {"signal-foreign", [] { CTVServiceSubscriber("tuner").UnsubscribeSignal(SIGNAL_TYPE_LOCK, kMain, 0); }},
    {"signal-thread", [] { OnThread([] { SubscribeSignal("tuner"); }); }},
    {"name-shared", NameShared},
    {"program-without-callback", ProgramWithoutCallback},
    {"program-without-any-callback", ProgramWithoutAnyCallback},
    {"program-of-another", ProgramOfAnother},
    {"program-foreign", ProgramUnknown},
    {"section-twice", SectionSetTwice},
    {"section-set-null", [] { CTVServiceSubscriber("list").SetSectionCallback(nullptr); }},
    {"section-foreign", [] { CTVServiceSubscriber("list").UnsubscribeSection(77); }},
    {"section-without-callback", SectionWithoutCallback},
    {"pes-refused", PesRefused},
    {"pes-null", [] { CTVServiceSubscriber("teletext").SubscribePES(nullptr, nullptr); }},
    {"pes-foreign", [] { CTVServiceSubscriber("teletext").UnsubscribePES(); }},
    {"attach-twice", AttachTwice},
    {"attach-null", AttachNull},
    {"detach-unattached", DetachUnattached},
    {"detach-before-attach", DetachBeforeAttach},
    {"dsm-before-attach", [] { CTVServiceSubscriber::GetDsmInstance(); }},
    {"pvr-null", [] { CPvrServiceSubscriber("recorder").RegisterPvrCb(nullptr, nullptr); }},
    {"pvr-twice", PvrTwice},
    {"pvr-foreign", [] { CPvrServiceSubscriber("recorder").UnRegisterPvrStateCb(OnPvrState); }},
    {"pvr-inside", PvrInside},
    {"pvr-kept", PvrKept},
    {"state-null", [] { CLumioStateSubscriber("light").RegisterLumioStateChangeCb(nullptr, nullptr); }},
    {"state-foreign", [] { CLumioStateSubscriber("light").UnregisterLumioStateChangeCb(OnState); }},
    {"register-inside", [] { Announce(RegisterInside); }},
    {"announce-inside", [] { Announce(AnnounceInside); }},
    {"unload", Unload},
    {"shutdown-subscribed", [] { SubscribeSignal("tuner"); }},
};

const std::map<std::string, std::function<void()>> kWithoutEfl = {
    {"ecore-missing", [] { Domain(); }},
    {"eina-missing", [] { lumio_banner_state_cb_add(3, OnBanner, malloc(1)); }},
    {"events-missing",
     [] {
       ecore_init();
       Domain();
     }},
    {"many-domains", OpenManyDomains},
    {"tell-after-shutdown",
     [] {
       ecore_init();
       SubscribeSignal("tuner");
       ecore_shutdown();
       lumio::tv::EmitSignal(SIGNAL_TYPE_LOCK, kMain, 0, {1, 2});
       lumio::tv::Flush();
     }},
    {"environment",
     [] {
       for (const char *name : {"LD_PRELOAD", "LUMIO_TRACE"}) {
         const char *value = getenv(name);
         printf("%s=%s\n", name, value ? value : "(not set)");
       }
       // Prints the first free descriptor, and the descriptors of the tracer that a child would see.
       printf("next descriptor %d\n", dup(0));
       for (int descriptor = 3; descriptor < 1024; ++descriptor) {
         const int flags = fcntl(descriptor, F_GETFD);
         if (flags >= 0 && (flags & FD_CLOEXEC) == 0) {
           printf("a child has descriptor %d\n", descriptor);
         }
       }
     }},
};

} // namespace

int main(int argc, char **argv) {
  const std::string name = argc > 1 ? argv[1] : "";
  ecore_app_no_system_modules();
  if (name == "storm" && argc > 2) {
    WithEfl([&] { Storm(atoi(argv[2])); });
  } else if (kWithEfl.count(name)) {
    WithEfl(kWithEfl.at(name));
  } else if (kWithoutEfl.count(name)) {
    kWithoutEfl.at(name)();
  } else {
    return 2;
  }
  return 0;
}
