// The viewer's modules, each made by a function of its own file.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "../module.h"

// A modal menu: while it is open, the keys that it uses reach nobody else.
std::unique_ptr<Module> MakeMenu(ModuleContext context);
// The keys that switch standby on and off, and that end the viewer.
std::unique_ptr<Module> MakePower(ModuleContext context, std::function<void(bool on)> set_standby,
                                  std::function<void()> quit);
std::unique_ptr<Module> MakeVolume(ModuleContext context);
std::unique_ptr<Module> MakeChannel(ModuleContext context);
// Details of what is on, until the key is pressed again.
std::unique_ptr<Module> MakeInfoBanner(ModuleContext context);
// The programme guide, read from the file `source` when it is opened; a built-in one when that is empty.
std::unique_ptr<Module> MakeGuide(ModuleContext context, std::string source);
// The broadcaster's application behind the red key: a session with a DSM data service.
std::unique_ptr<Module> MakeDataService(ModuleContext context);
// Keeps room on the screen for the banners that have been shown.
std::unique_ptr<Module> MakeLayout(ModuleContext context);
// The light of the front panel, which tells the viewer's state.
std::unique_ptr<Module> MakeLight(ModuleContext context);
// Results and states of the recordings.
std::unique_ptr<Module> MakeRecorder(ModuleContext context);
// Whether there is a signal, and how strong it is.
std::unique_ptr<Module> MakeTuner(ModuleContext context);
// The picture, which stands still without a signal. Shares a signal subscription with the tuner.
std::unique_ptr<Module> MakePicture(ModuleContext context);
// The present and the following programme.
std::unique_ptr<Module> MakeProgramme(ModuleContext context);
// The names of the services, from the table that is broadcast.
std::unique_ptr<Module> MakeServiceList(ModuleContext context);
// The captions of the programme, until the key is pressed, and a transcript of them. They share a caption subscription.
std::unique_ptr<Module> MakeCaptions(ModuleContext context);
std::unique_ptr<Module> MakeTranscript(ModuleContext context);
// Teletext, and a meter of all packets. They share a PES subscription.
std::unique_ptr<Module> MakeTeletext(ModuleContext context);
std::unique_ptr<Module> MakeStreamMeter(ModuleContext context);
// Counts what nobody took, and declines everything.
std::unique_ptr<Module> MakeLogger(ModuleContext context);
