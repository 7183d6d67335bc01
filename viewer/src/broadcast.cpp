#include "broadcast.h"

#include <lumio-host/tv-control.h>

#include "service_table.h"

void BroadcastSignal(ESignalType type, int value, int extra) {
  lumio::tv::EmitSignal(type, PROFILE_MAIN, 0, {value, extra});
}

void BroadcastProgramme(EProgramChangeType change, const Programme &programme) {
  TCProgramData data;
  data.title = programme.title;
  data.startTime = programme.start;
  data.duration = programme.duration;
  for (const lumio::tv::Subscription &subscription : lumio::tv::Subscriptions()) {
    if (subscription.kind == lumio::tv::Kind::Program) {
      lumio::tv::EmitProgram(subscription.handle, change, data, change == PROGRAM_CHANGE_PRESENT ? 0 : 1);
    }
  }
}

void BroadcastServices(const std::vector<std::string> &names) {
  lumio::tv::EmitSection(kServiceTablePid, MakeServiceTable(names));
}

void BroadcastCaption(const std::string &text) {
  TSCaption caption;
  caption.payload.assign(text.begin(), text.end());
  lumio::tv::EmitCaption(caption);
}

void BroadcastPacket(int second, const std::string &text) {
  TSPESData packet;
  packet.streamId = 0xbd; // a private stream, as for teletext
  packet.pts = 90000ULL * static_cast<unsigned>(second);
  packet.payload.assign(text.begin(), text.end());
  lumio::tv::EmitPes(packet);
}

void BroadcastModule(int module, const std::string &text) {
  for (const lumio::tv::Subscription &session : lumio::tv::Subscriptions()) {
    if (session.kind == lumio::tv::Kind::Dsm) {
      lumio::tv::EmitDsm({0, 0, 1, session.handle, module, static_cast<std::uint32_t>(text.size()), text.data()});
    }
  }
}
