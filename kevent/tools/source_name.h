#pragma once

#include <kevent.h>

namespace lumio {

// Returns the name by which messages call a source, one of LUMIO_EVENT_SOURCE_...; null for any other number.
inline const char *SourceName(int source) {
  switch (source) {
  case LUMIO_EVENT_SOURCE_REMOTE:
    return "remote control";
  case LUMIO_EVENT_SOURCE_PANEL:
    return "panel keys";
  case LUMIO_EVENT_SOURCE_TOUCH:
    return "touch remote";
  case LUMIO_EVENT_SOURCE_FUNCTION_OSD:
    return "function-osd";
  case LUMIO_EVENT_SOURCE_OTHER:
    return "other device";
  default:
    return nullptr;
  }
}

} // namespace lumio
