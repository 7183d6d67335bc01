// The base class of the viewer's modules, and what each module receives.
#pragma once

class Channels;
class KeyJournal;
class Presentation;

// A module works from its construction to its destruction, both on the main-loop thread. Before its destruction all
// subscriptions are released, and the platform's services make no more calls.
class Module {
public:
  virtual ~Module() = default;
};

// What every module receives. It outlives the modules.
struct ModuleContext {
  Presentation &screen;
  KeyJournal &journal;
  Channels &channels;
};
