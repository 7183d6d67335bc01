#include "application.h"

#include <Ecore.h>
#include <Ecore_Input.h>
#include <TVServiceSubscriber.h>
#include <lumio-host/tv-control.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <vector>

#include "channels.h"
#include "end_signals.h"
#include "key_journal.h"
#include "key_senders.h"
#include "key_watch.h"
#include "modules/modules.h"
#include "pointer.h"
#include "schedule.h"
#include "screen/broadcast_picture.h"
#include "screen/remote_control.h"
#include "screen/screen.h"
#include "screen/test_card.h"
#include "screen/theme.h"
#include "studio.h"
#include "television.h"
#include "viewer_state.h"
#include "window.h"
#include "x_connection.h"

namespace {

// EFL without X. The libraries below ours stay initialised until everything that uses them is gone.
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

void ExplainMissingDisplay() {
  const char *display = std::getenv("DISPLAY");
  if (!display || *display == '\0') {
    std::fprintf(stderr, "lumio-viewer: there is no X display: DISPLAY is not set.\n");
  } else {
    std::fprintf(stderr, "lumio-viewer: the X display '%s' (DISPLAY) does not answer.\n", display);
  }
  std::fprintf(stderr, "Start it from a desktop session, or run scripts/demo, which starts a display of its own.\n");
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
  modules.push_back(MakePanels(context, options.remote));
  modules.push_back(MakeLogger(context));
  return modules;
}

// Ends the stream, and lets the modules have what was told of it: the library keeps that until the main loop turns.
void TakeTheRest(Channels &channels) {
  if (channels.ArePlayed()) {
    channels.Close();
    lumio::tv::Flush();
    ecore_main_loop_iterate();
  }
}

// Returns the exit status.
int RunModules(Presentation &screen, Channels &channels, const Canvas &canvas, const Options &options) {
  int status = EXIT_SUCCESS;
  KeyJournal journal(screen);
  const auto modules = MakeModules({screen, journal, channels}, options);
  Studio studio(screen, canvas, channels, options.studio); // destroyed before the modules, to silence the services
  const Schedule schedule(!options.studio && !channels.ArePlayed(), channels);
  const KeySenders senders;
  const KeyWatch watch(journal, senders);
  const auto destroyed = [&status] {
    std::fprintf(stderr, "lumio-viewer: another program has destroyed the window\n");
    status = EXIT_FAILURE;
    ecore_main_loop_quit();
  };
  const Window window(canvas.Window(), screen, options.grab, {ecore_main_loop_quit, destroyed});
  const Pointer pointer(canvas.Window());
  CLumioStateSubscriber::HandleStateChanged(VIEWER_STATE_LIVE);
  ecore_main_loop_begin();
  TakeTheRest(channels);
  CLumioStateSubscriber::HandleStateChanged(VIEWER_STATE_CLOSING);
  CTVServiceSubscriber::ReleaseAll();
  studio.ShowSubscriptions();
  journal.End();
  return status;
}

std::unique_ptr<PictureSource> MakeSource(const Canvas &canvas, Channels &channels) {
  if (!channels.ArePlayed()) {
    return std::make_unique<TestCard>(canvas);
  }
  auto picture = std::make_unique<BroadcastPicture>(canvas);
  channels.OnTuned([picture = picture.get()] { picture->Follow(); });
  return picture;
}

int RunOnCanvas(Console &console, const Options &options) {
  Canvas canvas(FindTheme());
  Channels channels(options.stream);
  Screen screen(canvas, MakeSource(canvas, channels), WallClock(options.still));
  RemoteControl remote(canvas);
  Television television(console, screen, options.studio);
  const int status = RunModules(television, channels, canvas, options);
  television.Show("viewer", "closed in order", {});
  return status;
}

} // namespace

int RunViewer(Console &console, const Options &options) {
  const Efl efl;
  const EndSignals signals;
  const XConnection x;
  if (!x.IsOpen()) {
    ExplainMissingDisplay();
    return EXIT_FAILURE;
  }
  try {
    return RunOnCanvas(console, options);
  } catch (const std::runtime_error &error) {
    std::fprintf(stderr, "lumio-viewer: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
