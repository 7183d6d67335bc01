// The modules of the data or object carousel that one PID carries.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <utility>
#include <vector>

#include "budget.h"
#include "section_assembler.h"

namespace lumio::broadcast {

struct CarouselModule {
  std::uint16_t id;
  std::uint8_t version;
  Bytes data;
};

class Carousel {
public:
  using Tell = std::function<void(const CarouselModule &)>;

  // With `keeps`, keeps complete modules for `ForEachComplete`. Leaves out modules that the budget has no room for.
  Carousel(Budget &budget, bool keeps) : budget_(budget), keeps_(keeps) {}
  ~Carousel();
  Carousel(const Carousel &) = delete;
  Carousel &operator=(const Carousel &) = delete;

  // Takes a section whose checksum is right. Reports each version of a module once, when it is complete.
  void Push(const Section &section, const Tell &tell);

  void ForEachComplete(const Tell &tell) const;
  // Starts again: collects all modules from the next sections on.
  void Restart();

private:
  struct Module {
    std::uint8_t version = 0;
    std::size_t size = 0;
    std::size_t block_size = 0;
    bool complete = false;
    std::vector<std::uint8_t> data; // empty until the first block comes, and again unless complete modules are kept
    std::vector<bool> blocks;       // which blocks have come
    std::size_t missing = 0;        // blocks
  };
  using Key = std::pair<std::uint32_t, std::uint16_t>; // the download's id, the module's id

  enum class Use { kTaken, kUseless, kUnknown };

  void PushInfo(Bytes message, const Tell &tell);
  Use PushBlock(std::uint32_t download, Bytes message, const Tell &tell);
  void PushEarly(const Tell &tell);
  void KeepEarly(Bytes section);
  void Describe(const Key &key, const Module &described, const Tell &tell);
  bool Begin(Module &module);
  void Complete(std::uint16_t id, Module &module, const Tell &tell);
  void Release(Module &module);
  bool PushBlockSection(Bytes section, const Tell &tell);

  Budget &budget_;
  const bool keeps_;
  std::map<Key, Module> modules_;
  std::deque<std::vector<std::uint8_t>> early_; // blocks that came before their description
  std::size_t early_size_ = 0;
};

} // namespace lumio::broadcast
