// Makes the viewer's modules. Each function is in the file of its module.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "../module.h"

// Shows a modal menu: while it is open, no other module receives the keys that it uses.
std::unique_ptr<Module> MakeMenu(ModuleContext context);
// Switches standby on and off, and ends the viewer.
std::unique_ptr<Module> MakePower(ModuleContext context, std::function<void(bool on)> set_standby,
                                  std::function<void()> quit);
std::unique_ptr<Module> MakeVolume(ModuleContext context);
std::unique_ptr<Module> MakeChannel(ModuleContext context);
// Shows details of the programme until its key is pressed again.
std::unique_ptr<Module> MakeInfoBanner(ModuleContext context);
// Shows the programme guide. Reads it from the file `source` each time it opens; without one it shows
// the guide of the stream that is played, or a built-in one.
std::unique_ptr<Module> MakeGuide(ModuleContext context, std::string source);
// Opens the broadcaster's application with the red key: a session with a DSM data service.
std::unique_ptr<Module> MakeDataService(ModuleContext context);
// Keeps room on the screen for the banners that have been shown.
std::unique_ptr<Module> MakeLayout(ModuleContext context);
// Shows the viewer's state with the light of the front panel.
std::unique_ptr<Module> MakeLight(ModuleContext context);
// Starts and stops recordings, and shows their results and states.
std::unique_ptr<Module> MakeRecorder(ModuleContext context);
// Shows whether there is a signal and how strong it is.
std::unique_ptr<Module> MakeTuner(ModuleContext context);
// Shows whether the picture moves, which needs a signal. Shares a signal subscription with the tuner.
std::unique_ptr<Module> MakePicture(ModuleContext context);
// Shows the present and the following programme.
std::unique_ptr<Module> MakeProgramme(ModuleContext context);
// Shows the names of the services from the broadcast table.
std::unique_ptr<Module> MakeServiceList(ModuleContext context);
// One shows captions until its key is pressed, the other keeps a transcript. They share a caption subscription.
std::unique_ptr<Module> MakeCaptions(ModuleContext context);
std::unique_ptr<Module> MakeTranscript(ModuleContext context);
// One shows teletext and, with its key, the first page; the other counts the bytes of all packets. They share a PES
// subscription.
std::unique_ptr<Module> MakeTeletext(ModuleContext context);
std::unique_ptr<Module> MakeStreamMeter(ModuleContext context);
// Shows aids for watching keys: F1 shows the last ten keys, F2 the remote control. With `remote`, the remote control is
// shown from the start.
std::unique_ptr<Module> MakePanels(ModuleContext context, bool remote);
// Counts the keys that no module has taken. Declines every key.
std::unique_ptr<Module> MakeLogger(ModuleContext context);
