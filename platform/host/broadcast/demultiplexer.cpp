#include "demultiplexer.h"

namespace lumio::broadcast {

Demultiplexer::~Demultiplexer() = default;

Demultiplexer::Pid &Demultiplexer::Of(std::uint16_t pid) {
  std::unique_ptr<Pid> &entry = pids_[pid];
  if (!entry) {
    entry = std::make_unique<Pid>();
  }
  return *entry;
}

void Demultiplexer::PushRun(const PacketRun &run) {
  counts_.packets += run.count;
  const std::uint8_t *raw = run.first;
  for (std::size_t i = 0; i < run.count; ++i, raw += run.stride) {
    const Packet packet(raw);
    Pid *pid = pids_[packet.Pid()].get();
    // Nearly every packet is clear and follows the one before.
    if (pid && pid->is_in_run && !pid->is_scrambled && packet.IsPlain() && pid->continuity.Follows(packet)) {
      PushPayload(packet.Pid(), *pid, packet);
    } else {
      PushOther(packet);
    }
  }
  for (Pid *pid : in_run_) {
    pid->continuity.Keep();
    pid->is_in_run = false;
  }
  in_run_.clear();
}

void Demultiplexer::PushOther(const Packet &packet) {
  if (packet.IsErroneous()) { // even its PID may be wrong
    ++counts_.transport_errors;
    return;
  }
  const std::uint16_t number = packet.Pid();
  if (number == kNullPid) {
    return;
  }
  Pid &pid = Of(number);
  if (!pid.is_in_run) {
    pid.is_in_run = true;
    in_run_.push_back(&pid);
  }
  pid.was_seen = true;
  pid.is_scrambled = packet.IsScrambled();
  pid.was_scrambled |= packet.IsScrambled();
  switch (pid.continuity.Check(packet)) {
  case Continuity::kRepeats:
    return;
  case Continuity::kBroken:
    ++counts_.continuity_errors;
    DropBegun(pid);
    break;
  case Continuity::kJumps:
    DropBegun(pid);
    break;
  case Continuity::kFollows:
    break;
  }
  if (packet.IsScrambled()) {
    DropBegun(pid);
  } else if (packet.HasPayload()) {
    PushPayload(number, pid, packet);
  }
}

void Demultiplexer::PushPayload(std::uint16_t number, Pid &pid, const Packet &packet) {
  if (!pid.wants_sections && !pid.wants_pes) {
    return;
  }
  if (pid.wants_sections) {
    if (!pid.sections) {
      pid.sections = std::make_unique<SectionAssembler>(budget_);
    }
    pid.sections->Push(packet.Payload(), packet.IsUnitStart(),
                       [&](const Section &section) { listener_.OnSection(number, section); });
  }
  if (pid.wants_pes) {
    if (!pid.pes) {
      pid.pes = std::make_unique<PesAssembler>(number, budget_, dropped_pes_);
    }
    pid.pes->Push(packet.Payload(), packet.IsUnitStart(), [&](const PesPacket &pes) { listener_.OnPes(pes); });
  }
  retired_sections_.clear();
  retired_pes_.clear();
}

void Demultiplexer::End() {
  for (std::size_t i = 0; i < pids_.size(); ++i) {
    if (pids_[i] && pids_[i]->pes) {
      pids_[i]->pes->End([&](const PesPacket &pes) { listener_.OnPes(pes); });
    }
  }
  retired_sections_.clear();
  retired_pes_.clear();
}

void Demultiplexer::Interrupt() {
  for (const std::unique_ptr<Pid> &pid : pids_) {
    if (pid) {
      pid->continuity.Forget();
      DropBegun(*pid);
    }
  }
}

void Demultiplexer::DropBegun(Pid &pid) {
  if (pid.sections) {
    pid.sections->Drop();
  }
  if (pid.pes) {
    pid.pes->Lose();
  }
}

// Starts again with a PID that carries something else from now on.
void Demultiplexer::Retire(Pid &pid) {
  if (pid.sections) {
    retired_sections_.push_back(std::move(pid.sections));
  }
  if (pid.pes) {
    retired_pes_.push_back(std::move(pid.pes));
  }
}

void Demultiplexer::WantSections(std::uint16_t pid, bool wanted) {
  if (pid < kNullPid && Of(pid).wants_sections != wanted) {
    Retire(Of(pid));
    Of(pid).wants_sections = wanted;
  }
}

void Demultiplexer::WantPes(std::uint16_t pid, bool wanted) {
  if (pid < kNullPid && Of(pid).wants_pes != wanted) {
    Retire(Of(pid));
    Of(pid).wants_pes = wanted;
  }
}

} // namespace lumio::broadcast
