// What a module of the viewer is, and what it is given.
#pragma once

class KeyJournal;
class Presentation;

// Takes part in the viewer from its construction to its destruction, both on the main-loop thread. When it is
// destroyed, everything is released at the platform's services and they tell nothing any more.
class Module {
public:
  virtual ~Module() = default;
};

// What every module is given; outlives the modules.
struct ModuleContext {
  Presentation &screen;
  KeyJournal &journal;
};
