// What the library's Eina lists need beyond Eina.
#pragma once

#include <Eina.h>

namespace lumio {

// Appends and returns the new link, or null, with the list as it was, when memory is short: Eina does not tell.
inline Eina_List *Append(Eina_List **list, const void *data) {
  *list = eina_list_append(*list, data);
  Eina_List *last = eina_list_last(*list);
  return eina_list_data_get(last) == data ? last : nullptr;
}

} // namespace lumio
