#include "fake_x.h"

#include <list>
#include <memory>
#include <type_traits>

FakeX fake_x;

namespace {

// The answer to one XIQueryDevice, with everything that it points to.
struct DeviceList {
  std::vector<XIDeviceInfo> infos;
  std::list<XIKeyClassInfo> key_classes;
  std::list<XIAnyClassInfo> other_classes;
  std::list<std::vector<XIAnyClassInfo *>> class_lists;
  std::list<std::string> names;
};

std::list<std::unique_ptr<DeviceList>> g_lists;

XIDeviceInfo Describe(const FakeDevice &device, DeviceList *list) {
  std::vector<XIAnyClassInfo *> &classes = list->class_lists.emplace_back();
  for (const int source : device.key_sources) {
    XIKeyClassInfo &key_class = list->key_classes.emplace_back(XIKeyClassInfo{XIKeyClass, source, 0, {}});
    classes.push_back(reinterpret_cast<XIAnyClassInfo *>(&key_class));
  }
  classes.push_back(&list->other_classes.emplace_back(XIAnyClassInfo{XIButtonClass, device.id}));
  std::string &name = list->names.emplace_back(device.name);
  return {device.id, name.data(), device.use, 0, device.enabled, static_cast<int>(classes.size()), classes.data()};
}

} // namespace

Display *FakeDisplay() {
  static Screen screen{};
  static std::remove_pointer_t<_XPrivDisplay> display{};
  screen.root = FakeX::kRoot;
  display.screens = &screen;
  display.nscreens = 1;
  return reinterpret_cast<Display *>(&display);
}

extern "C" {

Ecore_X_Display *ecore_x_display_get(void) { return fake_x.display; }

Ecore_X_Atom ecore_x_atom_get(const char *name) {
  Note("atom ", name);
  return FakeX::kAtom;
}

Ecore_X_Window ecore_x_window_focus_get(void) {
  Note("focus");
  return fake_x.focus;
}

void ecore_x_window_prop_card32_set(Ecore_X_Window window, Ecore_X_Atom atom, unsigned int *values,
                                    unsigned int count) {
  std::string text;
  for (unsigned i = 0; i < count; ++i) {
    text += " " + std::to_string(values[i]);
  }
  Note("property ", std::to_string(atom), " of ", std::to_string(window), ":", text);
}

Bool XQueryExtension(Display *, const char *name, int *opcode, int *event, int *error) {
  Note("XQueryExtension ", name);
  if (!fake_x.has_extension) {
    return False;
  }
  *opcode = fake_x.opcode;
  *event = 0;
  *error = 0;
  return True;
}

Status XIQueryVersion(Display *, int *major, int *minor) {
  const Uncounted uncounted;
  Note("XIQueryVersion ", std::to_string(*major), ".", std::to_string(*minor));
  return fake_x.version_result;
}

XIDeviceInfo *XIQueryDevice(Display *, int device_id, int *count) {
  const Uncounted uncounted;
  Note("XIQueryDevice ", std::to_string(device_id));
  if (fake_x.during_query) {
    fake_x.during_query();
  }
  if (fake_x.query_fails) {
    *count = -1;
    return nullptr;
  }
  auto list = std::make_unique<DeviceList>();
  for (const FakeDevice &device : fake_x.devices) {
    if (device_id == XIAllDevices || device_id == device.id) {
      list->infos.push_back(Describe(device, list.get()));
    }
  }
  *count = static_cast<int>(list->infos.size());
  list->infos.push_back({}); // Xlib ends its lists like this
  ++fake_x.device_lists;
  return g_lists.emplace_back(std::move(list))->infos.data();
}

void XIFreeDeviceInfo(XIDeviceInfo *info) {
  g_lists.remove_if([info](const auto &list) { return list->infos.data() == info; });
  --fake_x.device_lists;
}

int XISelectEvents(Display *, Window window, XIEventMask *masks, int count) {
  const Uncounted uncounted;
  for (int i = 0; i < count; ++i) {
    std::string bytes;
    for (int byte = 0; byte < masks[i].mask_len; ++byte) {
      bytes += " " + std::to_string(masks[i].mask[byte]);
    }
    Note("XISelectEvents window ", std::to_string(window), " device ", std::to_string(masks[i].deviceid), " mask",
         bytes);
  }
  return Success;
}

} // extern "C"
