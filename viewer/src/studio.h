// What happens outside the viewer: on a desktop nobody broadcasts and nobody records, so somebody has to say what the
// platform's services tell. The only part of the viewer that knows the desktop's stand-ins.
#pragma once

#include <Ecore.h>

#include <map>
#include <string>
#include <vector>

#include "presentation.h"

class Studio {
public:
  // With `listen`, takes orders from standard input, one a line; see Orders() in studio.cpp.
  Studio(Presentation &screen, bool listen);
  // Ends the threads of the services: nothing is told any more.
  ~Studio();
  Studio(const Studio &) = delete;
  Studio &operator=(const Studio &) = delete;

  // Shows how many subscriptions the TV service has now, by kind, and which modules share them.
  void ShowSubscriptions();

private:
  static Eina_Bool InputCame(void *data, Ecore_Fd_Handler *handler);
  bool Read();
  void Obey(const std::string &line);

  Presentation &screen_;
  Ecore_Fd_Handler *input_ = nullptr;
  std::string pending_; // read, not yet a whole line
};
