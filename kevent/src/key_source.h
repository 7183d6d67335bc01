// Which input device sends the keys, as far as the X server tells.
#pragma once

#include <Eina.h>

namespace lumio {

// Asks the X server for the known devices and for events of all devices. Returns 1 if the events are selected, 0 if
// they cannot be had: `source_type` then stays as it is.
int init_x_input_extension();

// Handles an Ecore_X_Event_Generic. An event of the input extension may change `source_type`, and exempts the next
// press from the test of its age.
Eina_Bool _cb_event_generic(void *data, int type, void *event);

} // namespace lumio
