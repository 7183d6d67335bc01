#include "carousel.h"

#include "descriptors.h"
#include "tables.h"

namespace lumio::broadcast {

namespace {

constexpr unsigned kInfoMessage = 0x1002;  // DII
constexpr unsigned kBlockMessage = 0x1003; // DDB
constexpr std::size_t kMessageHeader = 12;
constexpr std::size_t kBlockHeader = 6;
constexpr std::size_t kInfoHeader = 16; // up to the compatibility descriptor
constexpr std::size_t kModuleHeader = 8;
constexpr std::size_t kMostEarly = std::size_t{256} << 10;
constexpr std::size_t kModuleCost = 256; // of a module without data

struct Message {
  unsigned id = 0;
  std::uint32_t transaction = 0; // in a block's message, the download's id
  Bytes body;
};

bool ParseMessage(Bytes bytes, Message &message) {
  if (bytes.size() < kMessageHeader || bytes[0] != 0x11 || bytes[1] != 0x03) {
    return false;
  }
  message.id = bytes.Get16(2);
  message.transaction = bytes.Get32(4);
  const std::size_t adaptation = bytes[9];
  const std::size_t length = bytes.Get16(10);
  if (bytes.size() - kMessageHeader < length || length < adaptation) {
    return false;
  }
  message.body = bytes.From(kMessageHeader).First(length).From(adaptation);
  return true;
}

} // namespace

Carousel::~Carousel() {
  for (auto &entry : modules_) {
    Release(entry.second);
    budget_.Give(kModuleCost);
  }
  budget_.Give(early_size_);
}

void Carousel::Push(const Section &section, const Tell &tell) {
  if (!section.IsLong()) {
    return;
  }
  Message message;
  if (section.TableId() == kDsmBlocksId) {
    PushBlockSection(section.Body(), tell);
  } else if (section.TableId() == kDsmMessagesId && ParseMessage(section.Body(), message) &&
             message.id == kInfoMessage) {
    PushInfo(message.body, tell);
  }
}

bool Carousel::PushBlockSection(Bytes body, const Tell &tell) {
  Message message;
  if (!ParseMessage(body, message) || message.id != kBlockMessage) {
    return false;
  }
  if (PushBlock(message.transaction, message.body, tell) == Use::kUnknown) {
    KeepEarly(body);
  }
  return true;
}

void Carousel::KeepEarly(Bytes body) {
  while (!early_.empty() && early_size_ + body.size() > kMostEarly) {
    early_size_ -= early_.front().size();
    budget_.Give(early_.front().size());
    early_.pop_front();
  }
  if (budget_.Take(body.size())) {
    early_size_ += body.size();
    early_.push_back(body.Copy());
  }
}

// A description has come that blocks may have waited for.
void Carousel::PushEarly(const Tell &tell) {
  std::deque<std::vector<std::uint8_t>> early;
  early.swap(early_);
  budget_.Give(early_size_);
  early_size_ = 0;
  for (const std::vector<std::uint8_t> &body : early) {
    PushBlockSection(body, tell);
  }
}

void Carousel::PushInfo(Bytes message, const Tell &tell) {
  if (message.size() < kInfoHeader + 2) {
    return;
  }
  const std::uint32_t download = message.Get32(0);
  const std::size_t block_size = message.Get16(4);
  const std::size_t compatibility = message.Get16(kInfoHeader);
  Bytes rest = message.From(kInfoHeader + 2).From(compatibility);
  const unsigned count = rest.size() < 2 ? 0 : rest.Get16(0);
  rest = rest.From(2);
  for (unsigned i = 0; i < count && rest.size() >= kModuleHeader; ++i) {
    Module described;
    described.size = rest.Get32(2);
    described.version = rest[6];
    described.block_size = block_size;
    const std::uint16_t id = static_cast<std::uint16_t>(rest.Get16(0));
    const std::size_t info = rest[7];
    rest = rest.From(kModuleHeader).From(info);
    Describe({download, id}, described, tell);
  }
}

void Carousel::Describe(const Key &key, const Module &described, const Tell &tell) {
  auto entry = modules_.find(key);
  if (entry == modules_.end()) {
    if (!budget_.Take(kModuleCost)) {
      return;
    }
    entry = modules_.try_emplace(key).first;
  } else if (entry->second.version == described.version && entry->second.size == described.size &&
             entry->second.block_size == described.block_size) {
    return;
  }
  Release(entry->second);
  entry->second = described;
  if (described.size == 0) {
    Complete(key.second, entry->second, tell);
  } else if (!early_.empty()) {
    PushEarly(tell);
  }
}

bool Carousel::Begin(Module &module) {
  if (module.data.empty()) {
    const std::size_t blocks = module.block_size == 0 ? 0 : (module.size + module.block_size - 1) / module.block_size;
    if (blocks == 0 || blocks > 0x10000 || !budget_.Take(module.size)) {
      return false;
    }
    module.data.resize(module.size);
    module.blocks.assign(blocks, false);
    module.missing = blocks;
  }
  return true;
}

Carousel::Use Carousel::PushBlock(std::uint32_t download, Bytes message, const Tell &tell) {
  if (message.size() < kBlockHeader) {
    return Use::kUseless;
  }
  const std::uint16_t id = static_cast<std::uint16_t>(message.Get16(0));
  const auto entry = modules_.find({download, id});
  if (entry == modules_.end() || entry->second.version != message[2]) {
    return Use::kUnknown;
  }
  Module &module = entry->second;
  const std::size_t number = message.Get16(4);
  const Bytes block = message.From(kBlockHeader);
  if (module.complete || !Begin(module) || number >= module.blocks.size() || module.blocks[number]) {
    return Use::kUseless;
  }
  const std::size_t start = number * module.block_size;
  if (block.size() != std::min(module.block_size, module.size - start)) {
    return Use::kUseless;
  }
  std::copy(block.begin(), block.end(), module.data.begin() + static_cast<std::ptrdiff_t>(start));
  module.blocks[number] = true;
  if (--module.missing == 0) {
    Complete(id, module, tell);
  }
  return Use::kTaken;
}

void Carousel::Complete(std::uint16_t id, Module &module, const Tell &tell) {
  module.complete = true;
  tell({id, module.version, module.data});
  if (!keeps_) {
    Release(module);
  }
}

void Carousel::Release(Module &module) {
  budget_.Give(module.data.size());
  module.data.clear();
  module.data.shrink_to_fit();
  module.blocks.clear();
  module.blocks.shrink_to_fit();
}

void Carousel::ForEachComplete(const Tell &tell) const {
  for (const auto &[key, module] : modules_) {
    if (module.complete && module.data.size() == module.size) {
      tell({key.second, module.version, module.data});
    }
  }
}

void Carousel::Restart() {
  for (auto &entry : modules_) {
    Release(entry.second);
    budget_.Give(kModuleCost);
  }
  modules_.clear();
}

} // namespace lumio::broadcast
