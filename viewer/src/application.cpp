#include "application.h"

#include <Ecore.h>
#include <Ecore_Input.h>
#include <Ecore_X.h>
#include <TVServiceSubscriber.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include "key_journal.h"
#include "key_watch.h"
#include "modules/modules.h"
#include "studio.h"
#include "viewer_state.h"
#include "window.h"

namespace {

// EFL without X. It outlives everything that uses it.
class Efl {
public:
  Efl() {
    ecore_app_no_system_modules(); // a viewer needs no system bus
    ecore_init();
    ecore_event_init();
  }
  ~Efl() {
    ecore_event_shutdown();
    ecore_shutdown();
  }
  Efl(const Efl &) = delete;
  Efl &operator=(const Efl &) = delete;
};

class XConnection {
public:
  XConnection() : open_(ecore_x_init(nullptr) > 0) {}
  ~XConnection() {
    if (open_) {
      ecore_x_shutdown();
    }
  }
  XConnection(const XConnection &) = delete;
  XConnection &operator=(const XConnection &) = delete;

  bool IsOpen() const { return open_; }

private:
  bool open_;
};

void ExplainMissingDisplay() {
  const char *display = std::getenv("DISPLAY");
  if (!display || *display == '\0') {
    std::fprintf(stderr, "lumio-viewer: there is no X display: DISPLAY is not set.\n");
  } else {
    std::fprintf(stderr, "lumio-viewer: the X display '%s' (DISPLAY) does not answer.\n", display);
  }
  std::fprintf(stderr, "Start it in a desktop session, or run scripts/demo, which starts a display of its own.\n");
}

Eina_Bool Quit(void *, int, void *) {
  ecore_main_loop_quit();
  return ECORE_CALLBACK_PASS_ON;
}

void SetStandby(bool standby) {
  CLumioStateSubscriber::HandleStateChanged(standby ? VIEWER_STATE_STANDBY : VIEWER_STATE_LIVE);
}

std::vector<std::unique_ptr<Module>> MakeModules(ModuleContext context, const Options &options) {
  std::vector<std::unique_ptr<Module>> modules;
  modules.push_back(MakeMenu(context));
  modules.push_back(MakePower(context, SetStandby, ecore_main_loop_quit));
  modules.push_back(MakeVolume(context));
  modules.push_back(MakeChannel(context));
  modules.push_back(MakeInfoBanner(context));
  modules.push_back(MakeGuide(context, options.guide_source));
  modules.push_back(MakeDataService(context));
  for (const auto make : {MakeLayout, MakeLight, MakeRecorder, MakeTuner, MakePicture, MakeProgramme, MakeServiceList,
                          MakeCaptions, MakeTranscript, MakeTeletext, MakeStreamMeter}) {
    modules.push_back(make(context));
  }
  modules.push_back(MakeLogger(context));
  return modules;
}

void RunModules(Presentation &screen, const Options &options) {
  KeyJournal journal(screen);
  const auto modules = MakeModules({screen, journal}, options);
  Studio studio(screen, options.studio); // destroyed before the modules: the services then call nobody
  const KeyWatch watch(journal);
  const Window window(screen, ecore_main_loop_quit);
  Ecore_Event_Handler *on_signal = ecore_event_handler_add(ECORE_EVENT_SIGNAL_EXIT, Quit, nullptr);
  CLumioStateSubscriber::HandleStateChanged(VIEWER_STATE_LIVE);
  ecore_main_loop_begin();
  CLumioStateSubscriber::HandleStateChanged(VIEWER_STATE_CLOSING);
  CTVServiceSubscriber::ReleaseAll();
  studio.ShowSubscriptions();
  ecore_event_handler_del(on_signal);
  journal.End();
}

} // namespace

int RunViewer(Presentation &screen, const Options &options) {
  const Efl efl;
  const XConnection x;
  if (!x.IsOpen()) {
    ExplainMissingDisplay();
    return EXIT_FAILURE;
  }
  RunModules(screen, options);
  screen.Show("viewer", "closed in order");
  return EXIT_SUCCESS;
}
