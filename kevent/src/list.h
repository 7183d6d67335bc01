// What the library's Eina lists need beyond Eina.
#pragma once

#include <Eina.h>

namespace lumio {

// Appends to the list and returns the new link. Returns null, with the list unchanged, if there is no memory, a failure
// that Eina itself does not report.
inline Eina_List *Append(Eina_List **list, const void *data) {
  *list = eina_list_append(*list, data);
  Eina_List *last = eina_list_last(*list);
  return eina_list_data_get(last) == data ? last : nullptr;
}

} // namespace lumio
