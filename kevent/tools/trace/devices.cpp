#include "devices.h"

#include <X11/Xlib.h>
#include <X11/extensions/XInput2.h>
#include <kevent.h>

#include <map>

#include "efl.h"
#include "next.h"
#include "player.h"
#include "record.h"
#include "source_name.h"

namespace lumio::trace {

namespace {

// Ecore_X_Event_Generic, without its header, which would declare the functions that the tracer wraps.
struct Generic {
  int extension;
  int evtype;
  unsigned cookie;
  void *data;
};

constexpr int kCoreKeyboard = 3; // fixed by the X server
constexpr int kCoreTest = 5;     // the server's own keyboard, before any other has sent a key

Next<Display *()> g_display_get("ecore_x_display_get");
Next<XIDeviceInfo *(Display *, int, int *)> g_query("XIQueryDevice");
Next<void(XIDeviceInfo *)> g_free("XIFreeDeviceInfo");
Next<int()> g_source_type("lumio_event_source_type_get");

// Used on the main-loop thread only.
std::map<int, std::string> &g_names = *new std::map<int, std::string>; // never destroyed: keys come until the end
int g_source = 0;

std::string QueryName(int device) {
  int count = 0;
  XIDeviceInfo *info = g_query.Get() ? g_query(g_display_get(), device, &count) : nullptr;
  std::string name = info && count > 0 ? info->name : "device " + std::to_string(device);
  if (info) {
    g_free(info);
  }
  return name;
}

const std::string &NameOf(int device) {
  const auto [name, is_new] = g_names.try_emplace(device);
  if (is_new) {
    name->second = QueryName(device);
  }
  return name->second;
}

void NotePlugs(const XIHierarchyEvent &event) {
  for (int i = 0; i < event.num_info; ++i) {
    if (event.info[i].flags & (XIDeviceEnabled | XIDeviceDisabled)) {
      BeginPlug();
      RecordPlug(QueryName(event.info[i].deviceid), (event.info[i].flags & XIDeviceEnabled) != 0);
    }
  }
}

// Returns the device from which the core keyboard has its keys; 0 if there is none.
int QuerySource() {
  int count = 0;
  int source = 0;
  XIDeviceInfo *keyboard = g_query.Get() ? g_query(g_display_get(), kCoreKeyboard, &count) : nullptr;
  for (int i = 0; keyboard && count > 0 && i < keyboard->num_classes; ++i) {
    if (keyboard->classes[i]->type == XIKeyClass) {
      source = keyboard->classes[i]->sourceid;
    }
  }
  if (keyboard) {
    g_free(keyboard);
  }
  return source;
}

const char *NameOfSourceType() {
  const char *name = SourceName(g_source_type());
  return name ? name : "?";
}

} // namespace

void NoteGenericEvent(const void *event) {
  const auto *generic = static_cast<const Generic *>(event);
  if (!generic || !generic->data) {
    return;
  }
  const auto *changed = static_cast<const XIDeviceChangedEvent *>(generic->data);
  if (generic->evtype == XI_HierarchyChanged) {
    NotePlugs(*static_cast<const XIHierarchyEvent *>(generic->data));
    g_names.clear();
  } else if (generic->evtype == XI_DeviceChanged && changed->deviceid == kCoreKeyboard) {
    g_source = changed->sourceid;
  }
}

std::string LearnDevice() {
  const int source = IsXUp() && g_source == 0 ? QuerySource() : 0;
  if (source != 0 && source != kCoreKeyboard && source != kCoreTest) {
    g_source = source;
  }
  return g_source != 0 ? NameOf(g_source) : "";
}

std::string CurrentDevice() {
  if (!IsXUp()) {
    return "-";
  }
  return g_source != 0 ? NameOf(g_source) : NameOfSourceType();
}

} // namespace lumio::trace
