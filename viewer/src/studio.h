// Plays the world outside the viewer. On a desktop nobody broadcasts and nobody records, so the studio tells the
// platform's services what to report. No other part of the viewer knows the desktop's control interfaces.
#pragma once

#include <Ecore.h>

#include <map>
#include <string>
#include <vector>

#include "presentation.h"

class Studio {
public:
  // With `listen`, reads orders from standard input, one per line; see Orders() in studio.cpp.
  Studio(Presentation &screen, bool listen);
  // Ends the threads of the services, which then report nothing more.
  ~Studio();
  Studio(const Studio &) = delete;
  Studio &operator=(const Studio &) = delete;

  // Shows how many subscriptions of each kind the TV service has, and which modules share them.
  void ShowSubscriptions();

private:
  static Eina_Bool InputCame(void *data, Ecore_Fd_Handler *handler);
  bool Read();
  void Obey(const std::string &line);

  Presentation &screen_;
  Ecore_Fd_Handler *input_ = nullptr;
  std::string pending_; // read, but not yet a complete line
};
