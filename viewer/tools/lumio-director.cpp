// Plays an evening of television on a private display and checks what the viewer prints.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "evening.h"
#include "temporary_directory.h"

namespace {

constexpr char kEverybody[] =
    "menu, power, volume, channel, info, guide, data, captions, recorder, teletext, panels, logger";
constexpr char kAging[] = "passed on: factory aging mode";
constexpr char kNobody[] = "taken by nobody";
// The subscriptions of the TV service and the modules that share them, without the broadcaster's application.
constexpr char kSubscriptions[] = "signal 2 (picture, tuner); program 1 (programme); section 1 (service list); "
                                  "pes 1 (stream meter, teletext); caption 1 (captions, transcript)";

constexpr char kGuide[] = "20:15 Evening News; 20:30 The Weather; 20:35 Tides and Harbours; 21:20 The Long Way Home; "
                          "22:10 Kitchen Stories; 22:40 Late News";

constexpr char kUsage[] = R"(usage: lumio-director [--keep DIR] [--under COMMAND] [--scripted]
Plays an evening of television: starts an X server with the input devices of a television, runs the viewer on it and
presses keys. Exits with status 0 if the viewer prints everything that is expected.

  --keep DIR       keep the viewer's log (DIR/evening.log unless LUMIO_LOG names another), its store, and a page with a
                   picture of each scene (DIR/index.html)
  --under COMMAND  run the viewer under another program: COMMAND is its name and options, for example "lumio-trace --json"
  --scripted       leave out the transport stream at the end
)";

// Makes the directory if it is missing, and removes the files of an earlier evening from it. Returns its absolute path.
std::string Prepare(const std::string &directory) {
  std::string path = std::filesystem::absolute(directory);
  for (const char *old : {"/evening.log", "/evening.vconf", "/evening.guide", "/index.html"}) {
    std::filesystem::remove_all(path + old);
  }
  std::filesystem::create_directories(path);
  for (const auto &entry : std::filesystem::directory_iterator(path)) {
    if (entry.path().filename().string().rfind("scene-", 0) == 0) {
      std::filesystem::remove(entry.path());
    }
  }
  return path;
}

void SetAging(Evening &evening, const std::string &value) {
  evening.Run("another process sets aging mode to " + value, {LUMIO_VCONF, "set", "db/FactoryApp/Aging", value});
}

// Lets the guide's storage answer, at the earliest after `delay`.
void AnswerGuide(Evening &evening, std::chrono::duration<double> delay) {
  evening.Run("the guide's storage answers",
              {"/bin/sh", "-c", R"(sleep "$1"; printf '%s' "$3" | sed 's/; /\n/g' >"$2")", "sh",
               std::to_string(delay.count()), evening.GuideFile(), kGuide});
}

void PlayBanners(Evening &evening) {
  evening.Heading("The television is switched on; other processes see its banners");
  evening.ExpectScreen("light", "green");
  evening.ExpectScreen("viewer", "ready, all keys of this display come here");
  evening.ExpectBanners(0);
  evening.Tap("XF86RaiseChannel", "menu, power, volume, channel", "taken by channel");
  evening.ExpectScreen("channel", "2");
  evening.ExpectScreen("layout", "room for channel");
  evening.ExpectBanners(2);
  evening.Tap("XF86AudioRaiseVolume", "menu, power, volume", "taken by volume");
  evening.ExpectScreen("volume", "11");
  evening.ExpectScreen("layout", "room for channel, volume");
  evening.ExpectBanners(3);
  evening.Tap("XF86Info", "menu, power, volume, channel, info", "taken by info");
  evening.ExpectScreen("info", "what is on now");
  evening.Picture();
  evening.ExpectBanners(7);
  evening.Tap("XF86Info", "menu, power, volume, channel, info", "taken by info");
  evening.ExpectScreen("info", "(hidden)");
  evening.ExpectScreen("volume", "(hidden)");
  evening.Run("a banner that was shown stays marked", {LUMIO_VCONF, "get", "memory/lumio/lumio_banner_state_1"}, "7");
}

void PlayRecorder(Evening &evening) {
  evening.Heading("A programme is recorded until the disk is full");
  evening.Order("record 7");
  evening.ExpectScreen("recorder", "start of programme 7: done");
  evening.ExpectScreen("record indicator", "recording");
  evening.Picture();
  evening.ExpectBanners(15);
  evening.Order("record 8");
  evening.ExpectScreen("recorder", "start of programme 8: refused, another recording is running");
  evening.Order("disk-space 0");
  evening.ExpectScreen("recorder", "stop of programme 7: disk full");
  evening.ExpectScreen("record indicator", "(hidden)");
}

void PlayStandby(Evening &evening) {
  evening.Heading("Standby: the light shows the viewer's state");
  evening.Tap("s", "menu, power", "taken by power");
  evening.ExpectScreen("light", "red");
  evening.Picture();
  evening.Tap("s", "menu, power", "taken by power");
  evening.ExpectScreen("light", "green");
}

void PlayBroadcast(Evening &evening) {
  evening.Heading("A broadcast arrives: signal, programmes, services");
  evening.Order("lock 1");
  evening.ExpectScreen("tuner", "locked");
  evening.ExpectScreen("picture", "moving");
  evening.Order("strength 80 70");
  evening.ExpectScreen("tuner", "strength 80 %, quality 70 %");
  evening.Order("present 20:15-20:30 Evening News");
  evening.ExpectScreen("now", "Evening News");
  evening.Order("following 20:30-20:45 The Weather");
  evening.ExpectScreen("next", "The Weather");
  evening.Order("services One Two Three");
  evening.ExpectScreen("services", "One, Two, Three");
  evening.Picture();

  evening.Heading("Captions and packets reach both modules that use them");
  evening.Order("caption Good evening.");
  evening.ExpectScreen("captions", "Good evening.");
  evening.ExpectScreen("transcript", "Good evening.");
  evening.Order("caption Here is the news.");
  evening.ExpectScreen("captions", "Here is the news.");
  evening.ExpectScreen("transcript", "Good evening. / Here is the news.");
  evening.Picture();
  evening.Order("packet 12 teletext");
  evening.ExpectScreen("teletext", "8 bytes for second 12");
  evening.ExpectScreen("stream meter", "8 bytes");
  evening.Order("packet 13 more"); // and each packet once
  evening.ExpectScreen("stream meter", "12 bytes");

  evening.Heading("Captions are switched off and on again; the transcript continues");
  evening.Tap("c", "menu, power, volume, channel, info, guide, data, captions", "taken by captions");
  evening.ExpectScreen("captions", "(hidden)");
  evening.Order("caption More at ten.");
  evening.ExpectScreen("transcript", "Good evening. / Here is the news. / More at ten.");
  evening.Order("subscriptions");
  evening.ExpectScreen("subscriptions", "signal 2 (picture, tuner); program 1 (programme); section 1 (service list); "
                                        "pes 1 (stream meter, teletext); caption 1 (transcript)");
  evening.Tap("c", "menu, power, volume, channel, info, guide, data, captions", "taken by captions");
  evening.Order("caption Good night.");
  evening.ExpectScreen("captions", "Good night.");
  evening.Picture();
}

void PlayDataService(Evening &evening) {
  evening.Heading("The red key opens and closes the broadcaster's application");
  evening.Order("refuse-session");
  evening.Order("subscriptions"); // answered after the orders before it
  evening.ExpectScreen("subscriptions", kSubscriptions);
  evening.Tap("XF86Red", "menu, power, volume, channel, info, guide, data", "taken by data");
  evening.ExpectScreen("data service", "not available");
  evening.Order("greeting 1 welcome");
  evening.Order("subscriptions");
  evening.ExpectScreen("subscriptions", kSubscriptions);
  evening.Tap("XF86Red", "menu, power, volume, channel, info, guide, data", "taken by data");
  evening.ExpectScreen("data service", "attached");
  evening.ExpectScreen("data service", "module 1: welcome");
  evening.Order("module 3 sunny");
  evening.ExpectScreen("data service", "module 3: sunny");
  evening.Picture();
  evening.Order("subscriptions");
  evening.ExpectScreen("subscriptions", std::string(kSubscriptions) + "; dsm 1 (data service)");
  evening.Tap("XF86Red", "menu, power, volume, channel, info, guide, data", "taken by data");
  evening.ExpectScreen("data service", "(hidden)");
  evening.Order("subscriptions");
  evening.ExpectScreen("subscriptions", kSubscriptions);
}

void PlaySignalLoss(Evening &evening) {
  evening.Heading("A storm: the signal is lost");
  evening.Order("lock 0");
  evening.ExpectScreen("tuner", "searching");
  evening.ExpectScreen("picture", "no signal");
  evening.Picture();
}

void PlayRemotes(Evening &evening) {
  evening.Heading("Two remotes are used in turn");
  evening.Tap("Up", "menu, power, volume, channel", "taken by channel");
  evening.ExpectScreen("channel", "3");
  evening.Picture();
  evening.Tap("Up", "menu, power, volume, channel", "taken by channel");
  evening.ExpectScreen("channel", "4");

  evening.Heading("A key that no module uses is offered to all of them");
  evening.Tap("F1", "menu, power, volume, channel, info, guide, data, captions, recorder, teletext, panels",
              "taken by panels");
  evening.ExpectScreen("keys", "the last ten keys");
  evening.Tap("F5", kEverybody, kNobody);
  evening.Picture();
}

void PlayMenu(Evening &evening) {
  evening.Heading("The menu is open: it keeps the keys that it uses");
  evening.Press("Menu");
  evening.ExpectKey("Menu", "press", "menu", "taken by menu");
  evening.ExpectScreen("menu", "Picture");
  evening.Release("Menu");
  evening.ExpectKey("Menu", "release", "menu", "taken by menu");
  evening.Press("Down");
  evening.ExpectKey("Down", "press", "menu", "taken by menu");
  evening.ExpectScreen("menu", "Sound");
  evening.Picture();
  evening.Release("Down");
  evening.ExpectKey("Down", "release", "menu", "taken by menu");
  evening.Tap("XF86AudioLowerVolume", "menu, power, volume", "taken by volume");
  evening.Tap("Escape", "menu", "taken by menu");
  evening.ExpectScreen("menu", "(hidden)");

  evening.Heading("The menu is closed: the same key changes the channel");
  evening.Tap("Down", "menu, power, volume, channel", "taken by channel");
  evening.ExpectScreen("channel", "3");
  evening.Picture();
}

void PlayAging(Evening &evening) {
  evening.Heading("Another process sets aging mode: keys bypass the modules");
  SetAging(evening, "1");
  evening.Press("Up");
  evening.ExpectKey("Up", "press", "nobody", kAging);
  evening.Release("Up");
  evening.ExpectKey("Up", "release", "nobody", kAging);
  evening.Picture();
  SetAging(evening, "0");
  evening.Tap("Up", "menu, power, volume, channel", "taken by channel");
  evening.ExpectScreen("channel", "4");
}

void PlayBurst(Evening &evening) {
  evening.Heading("A burst of keys while the guide is loading: most presses are dropped");
  evening.Press("g");
  evening.ExpectScreen("guide", "loading");
  evening.Release("g");
  for (const char *key : {"1", "2", "3"}) {
    evening.PressOnSameRemote(key);
    evening.Release(key);
  }
  AnswerGuide(evening, std::chrono::seconds(0));
  evening.ExpectKey("g", "press", "menu, power, volume, channel, info, guide", "taken by guide");
  evening.ExpectScreen("guide", kGuide);
  evening.ExpectKey("g", "release", "menu, logger", kNobody);
  // One busy stretch of the main loop dispatches two keys: the release of "g" and the first press.
  evening.ExpectKey("1", "press", "menu, power, volume, guide, channel", "taken by channel");
  evening.ExpectKey("1", "release", "menu, logger", kNobody);
  for (const char *key : {"2", "3"}) {
    evening.ExpectKey(key, "press", "nobody", "dropped: burst");
    evening.ExpectKey(key, "release", "menu, logger", kNobody);
  }
  evening.Picture();
  evening.Tap("g", "menu, power, volume, guide, channel, info, guide", "taken by guide");
}

void PlayStaleKey(Evening &evening) {
  evening.Heading("A key that has waited too long is ignored");
  evening.Press("g");
  evening.ExpectScreen("guide", "loading");
  evening.PressOnSameRemote("Up");
  // A key is stale if it waits a quarter of a second longer than the first key whose age was checked.
  AnswerGuide(evening, evening.SlowestKey() + std::chrono::milliseconds(500));
  evening.ExpectKey("g", "press", "menu, power, volume, channel, info, guide", "taken by guide");
  evening.ExpectKey("Up", "press", "nobody", "dropped: stale");
  evening.Release("Up");
  evening.ExpectKey("Up", "release", "nobody", "dropped: release after an ignored press");
  evening.Release("g");
  evening.ExpectKey("g", "release", "nobody", "dropped: release after an ignored press");
  evening.Picture();
  evening.Tap("XF86RaiseChannel", "menu, power, volume, guide, channel", "taken by channel");
  evening.Tap("g", "menu, power, volume, guide, channel, info, guide", "taken by guide");
}

void PlayStream(Evening &evening) {
  evening.Heading("A transport stream is played: programmes, services and captions come from it");
  evening.Order(std::string("play ") + LUMIO_SAMPLE);
  evening.Order("advance 1000");
  evening.ExpectScreen("picture", "moving");
  evening.ExpectScreen("services", "Lumio One, Lumio Two");
  evening.ExpectScreen("now", "Night Train");
  evening.ExpectScreen("next", "The Evening News");
  evening.ExpectScreen("captions", "Good evening.");
  evening.Tap("1", "menu, power, volume, channel", "taken by channel");
  evening.ExpectScreen("channel", "1");
  evening.Picture();
  evening.ExpectScreen("channel", "(hidden)");

  evening.Heading("Its teletext is shown");
  evening.Tap("t", "menu, power, volume, channel, info, guide, data, captions, recorder, teletext",
              "taken by teletext");
  evening.ExpectScreen("page", "LUMIO TEXT / 888 Subtitles in English / 889 Untertitel auf Deutsch / "
                               "The Evening News every four hours / Night Train an hour before");
  evening.Picture();
  evening.Tap("t", "menu, power, volume, channel, info, guide, data, captions, recorder, teletext",
              "taken by teletext");
  evening.ExpectScreen("page", "(hidden)");
}

bool Play(const std::string &directory, const std::vector<std::string> &under, bool pictures, bool scripted) {
  Evening evening(directory, under, pictures);
  PlayBanners(evening);
  PlayBroadcast(evening);
  PlayDataService(evening);
  PlayRemotes(evening);
  PlayMenu(evening);
  PlayAging(evening);
  PlayRecorder(evening);
  PlayStandby(evening);
  PlayBurst(evening);
  PlayStaleKey(evening);
  PlaySignalLoss(evening);
  if (!scripted) {
    PlayStream(evening);
  }
  evening.Heading("The television is switched off");
  evening.End();
  return evening.Summarise();
}

std::vector<std::string> Words(const std::string &text) {
  std::istringstream stream(text);
  return {std::istream_iterator<std::string>(stream), {}};
}

} // namespace

int main(int argc, char **argv) {
  std::string kept;
  std::string under;
  bool scripted = false;
  for (int i = 1; i < argc; ++i) {
    if (i + 1 < argc && std::strcmp(argv[i], "--keep") == 0) {
      kept = argv[++i];
    } else if (i + 1 < argc && std::strcmp(argv[i], "--under") == 0) {
      under = argv[++i];
    } else if (std::strcmp(argv[i], "--scripted") == 0) {
      scripted = true;
    } else {
      std::fputs(kUsage, stderr);
      return EXIT_FAILURE;
    }
  }
  std::signal(SIGPIPE, SIG_IGN);            // a write to a viewer that has ended fails instead
  std::setvbuf(stdout, nullptr, _IOLBF, 0); // print each line at once, even into a pipe
  try {
    const lumio::TemporaryDirectory temporary;
    const std::string directory = kept.empty() ? temporary.Path() : Prepare(kept);
    return Play(directory, Words(under), !kept.empty(), scripted) ? EXIT_SUCCESS : EXIT_FAILURE;
  } catch (const std::exception &error) {
    std::fprintf(stderr, "lumio-director: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
