// The subscriber objects of the six kinds, and the functions that emit to their subscriptions.
#include "tv-service.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace lumio::tv {

namespace {

__attribute__((format(printf, 1, 2))) std::string Format(const char *format, ...) {
  char text[160];
  va_list arguments;
  va_start(arguments, format);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): it is initialized
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return text;
}

std::string Hex(const std::vector<unsigned char> &bytes) {
  std::string text;
  for (const unsigned char byte : bytes) {
    text += Format("%02x", byte);
  }
  return text;
}

} // namespace

// Signals

int SignalService::Subscribe(ESignalType type, void *userData, EProfile profile, unsigned short screenId) {
  return Carry(Operation::SubscribeSignal, [&] {
    subscriptions.Add({type, profile, screenId}, NextHandle(), userData, userData,
                      Format("type %d, profile %d, screen %d", type, profile, screenId));
    return kDone;
  });
}

int SignalService::Unsubscribe(ESignalType type, EProfile profile, unsigned short screenId) {
  return Carry(Operation::UnsubscribeSignal, [&] { return subscriptions.Remove({type, profile, screenId}); });
}

int EmitSignal(ESignalType type, EProfile profile, unsigned short screenId, TSSignalData data) {
  SignalService &service = Service::Get().signal;
  return service.subscriptions.EmitTo({type, profile, screenId}, [=, &service](void *user_data) {
    service.callback.load()(type, profile, screenId, data, user_data);
  });
}

// Programmes

int ProgramService::Add(const Details &details, const std::string &description, int &handle) {
  handle = NextHandle();
  subscriptions.Add(handle, handle, details, nullptr, description);
  return kDone;
}

int ProgramService::SubscribeProgram(const TCProgramFilteringItem &item, int &handle) {
  return Carry(Operation::SubscribeProgram, [&] {
    return Add({Form::Program, item.serviceId, SUBSCRIBE_TYPE_CHANGES, item.eventId, 0, 0},
               Format("programme %d of service %#llx", item.eventId, item.serviceId), handle);
  });
}

int ProgramService::UnsubscribeProgram(int handle) {
  return Carry(Operation::UnsubscribeProgram, [&] {
    return subscriptions.RemoveIf(handle, [](const Details &details) { return details.form == Form::Program; });
  });
}

int ProgramService::SubscribeProgramListPF(int arg, const TCServiceId &serviceId, ESubscribeType type, int &handle) {
  return Carry(Operation::SubscribeProgramListPF, [&] {
    return Add({Form::PresentFollowing, serviceId, type, 0, 0, 0},
               Format("present and following of service %#llx, arg %d, type %d", serviceId, arg, type), handle);
  });
}

int ProgramService::SubscribeProgramList(int arg, const TCServiceId &serviceId, unsigned int first, unsigned int second,
                                         ESubscribeType type, int &handle) {
  return Carry(Operation::SubscribeProgramList, [&] {
    return Add({Form::List, serviceId, type, 0, first, second},
               Format("list %u, %u of service %#llx, arg %d, type %d", first, second, serviceId, arg, type), handle);
  });
}

int ProgramService::UnsubscribeProgramList(int handle) {
  return Carry(Operation::UnsubscribeProgramList, [&] {
    return subscriptions.RemoveIf(handle, [](const Details &details) { return details.form != Form::Program; });
  });
}

bool ProgramService::GetMonitoringType(EProgramMonitoringType &type) {
  return Carry(Operation::GetMonitoringType, [&] {
           type = monitoring_type;
           return kDone;
         }) != kFailed;
}

TCProgramData *ProgramService::Keep(const TCProgramData &data) { return &kept_.emplace_back(data); }

int EmitProgram(int handle, EProgramChangeType change, const TCProgramData &data, int position) {
  ProgramService &service = Service::Get().program;
  return service.subscriptions.EmitTo(handle, [=, &service](const ProgramService::Details &) {
    service.callback.load()(change, service.Keep(data), position, handle);
  });
}

int TellProgram(int handle, EProgramChangeType change, TCProgramData *data, int position) {
  ProgramService &service = Service::Get().program;
  return service.subscriptions.EmitTo(handle, [=, &service](const ProgramService::Details &) {
    service.callback.load()(change, data, position, handle);
  });
}

void SetMonitoringType(EProgramMonitoringType type) { Service::Get().program.monitoring_type = type; }

// Sections

namespace {

constexpr std::size_t kLongestSection = 4096;

bool Passes(const TCSectionFilterCriteriaHelper &filter, const std::vector<unsigned char> &section) {
  if (section.size() < filter.match.size()) {
    return false;
  }
  for (std::size_t i = 0; i < filter.match.size(); ++i) {
    const unsigned char mask = i < filter.mask.size() ? filter.mask[i] : 0xff;
    if (((section[i] ^ filter.match[i]) & mask) != 0) {
      return false;
    }
  }
  return true;
}

template <class Emit> int EmitAnySection(const std::vector<unsigned char> &section, bool valid, Emit emit) {
  if (section.empty() || section.size() > kLongestSection) {
    return 0;
  }
  SectionService &service = Service::Get().section;
  return emit(service.subscriptions, [=, &service](const SectionService::Details &details) {
    std::vector<unsigned char> copy = section;
    service.callback.load()(valid, static_cast<unsigned short>(copy.size()), copy.data(), details.key);
  });
}

} // namespace

int SectionService::Add(const Details &details, int &handle) {
  handle = NextHandle();
  subscriptions.Add(handle, handle, details, nullptr,
                    Format("key %#x, pid %#x, first bytes ", static_cast<unsigned>(details.key), details.filter.pid) +
                        Hex(details.filter.match) + " under mask " + Hex(details.filter.mask));
  return kDone;
}

int SectionService::SubscribeByCriteria(int key, const TCSectionCriteriaHelper &criteria, int &handle) {
  return Carry(Operation::SubscribeSectionByCriteria, [&] {
    TCSectionFilterCriteriaHelper filter;
    filter.pid = criteria.pid;
    filter.match = {criteria.tableId};
    filter.mask = {0xff};
    return Add({key, filter}, handle);
  });
}

int SectionService::SubscribeByFilter(int key, const TCSectionFilterCriteriaHelper &filter, int &handle) {
  return Carry(Operation::SubscribeSectionByFilter, [&] { return Add({key, filter}, handle); });
}

int SectionService::Unsubscribe(int handle) {
  return Carry(Operation::UnsubscribeSection, [&] { return subscriptions.Remove(handle); });
}

int EmitSection(unsigned short pid, const std::vector<unsigned char> &section, bool valid) {
  return EmitAnySection(section, valid, [&](auto &subscriptions, const auto &deliver) {
    return subscriptions.EmitToEach(
        [&](const SectionService::Details &details) {
          return details.filter.pid == pid && Passes(details.filter, section);
        },
        deliver);
  });
}

int EmitSectionTo(int handle, const std::vector<unsigned char> &section, bool valid) {
  return EmitAnySection(
      section, valid, [&](auto &subscriptions, const auto &deliver) { return subscriptions.EmitTo(handle, deliver); });
}

// PES packets and captions

int EmitPes(const TSPESData &packet) { return Service::Get().pes.Emit(packet); }
int EmitCaption(const TSCaption &caption) { return Service::Get().caption.Emit(caption); }

// DSM sessions

int DsmService::Attach(unsigned int &sessionHandle, const std::vector<unsigned char> &target,
                       EDsmDataServiceType serviceType, EDsmAttachType attachType, void *userData, bool flag) {
  return Carry(Operation::AttachDsm, [&] {
    const int handle = NextHandle();
    sessionHandle = static_cast<unsigned int>(handle);
    subscriptions.Add(handle, handle, {{target.begin(), target.end()}, attachType}, userData,
                      "target \"" + std::string(target.begin(), target.end()) +
                          Format("\", service type %d, attach type %d, flag %d", serviceType, attachType, flag));
    return kDone;
  });
}

int DsmService::Detach(unsigned int sessionHandle) {
  return Carry(Operation::DetachDsm, [&] { return subscriptions.Remove(static_cast<int>(sessionHandle)); });
}

int EmitDsm(const TSDsmMessage &message) {
  DsmService &service = Service::Get().dsm;
  const auto *bytes = static_cast<const unsigned char *>(message.data);
  std::vector<unsigned char> data(bytes, bytes ? bytes + message.size : nullptr);
  return service.subscriptions.EmitTo(message.sessionHandle, [=, data = std::move(data), &service](const auto &) {
    TSDsmMessage copy = message;
    copy.data = data.data();
    service.callback.load()(copy);
  });
}

} // namespace lumio::tv
