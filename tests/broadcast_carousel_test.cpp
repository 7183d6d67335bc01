// Carousels: modules from blocks that come in any order.
#include <gmock/gmock.h>

#include <algorithm>
#include <random>

#include "carousel.h"
#include "transport_stream.h"

using namespace lumio::broadcast;
using testing::ElementsAre;
using testing::IsEmpty;
using ts::operator+;

namespace {

class CarouselTest : public testing::Test {
protected:
  void Push(const ts::Bytes &section) {
    carousel.Push(Section(Bytes(section)), [this](const CarouselModule &module) { Tell(module); });
  }
  void PushBlocks(const ts::Module &module, unsigned first = 0) {
    for (unsigned block = first; block * kBlock < module.data.size(); ++block) {
      Push(ts::Ddb(9, kBlock, module, block));
    }
  }
  void Tell(const CarouselModule &module) {
    told.push_back(std::to_string(module.id) + " v" + std::to_string(module.version) + " " +
                   std::string(module.data.begin(), module.data.end()));
  }

  static constexpr unsigned kBlock = 4;
  const ts::Module one{1, 0, ts::Text("first module")}; // three whole blocks
  const ts::Module two{2, 3, ts::Text("second")};
  Budget budget{1 << 20};
  Carousel carousel{budget, true};
  std::vector<std::string> told;
};

} // namespace

TEST_F(CarouselTest, ModulesAreToldOnceInEachVersion) {
  for (int cycle = 0; cycle < 3; ++cycle) {
    Push(ts::Dii(9, kBlock, {one, two}));
    PushBlocks(one);
    PushBlocks(two);
  }
  EXPECT_THAT(told, ElementsAre("1 v0 first module", "2 v3 second"));
  const ts::Module newer{1, 1, ts::Text("newer")};
  Push(ts::Dii(9, kBlock, {newer, two}));
  PushBlocks(one); // late
  PushBlocks(newer);
  EXPECT_EQ(told.size(), 3U);
  EXPECT_EQ(told.back(), "1 v1 newer");
}

TEST_F(CarouselTest, BlocksMayComeInAnyOrder) {
  Push(ts::Dii(9, kBlock, {one}));
  for (const unsigned block : {2, 0, 2, 1}) {
    EXPECT_THAT(told, IsEmpty());
    Push(ts::Ddb(9, kBlock, one, block));
  }
  EXPECT_THAT(told, ElementsAre("1 v0 first module"));
}

TEST_F(CarouselTest, BlocksMayComeBeforeWhatDescribesThem) {
  PushBlocks(one);
  PushBlocks(two);
  EXPECT_THAT(told, IsEmpty());
  Push(ts::Dii(9, kBlock, {one, two}));
  EXPECT_THAT(told, ElementsAre("1 v0 first module", "2 v3 second"));
}

TEST_F(CarouselTest, EmptyModulesAreComplete) {
  Push(ts::Dii(9, kBlock, {{5, 0, {}}}));
  EXPECT_THAT(told, ElementsAre("5 v0 "));
}

TEST_F(CarouselTest, WrongBlocksAreLeftOut) {
  Push(ts::Dii(9, kBlock, {one}));
  Push(ts::Ddb(8, kBlock, one, 0));                                 // of another download
  Push(ts::Ddb(9, kBlock, {1, 7, one.data}, 0));                    // of another version
  Push(ts::Ddb(9, kBlock, {1, 0, one.data + ts::Text("more")}, 3)); // beyond the end
  Push(ts::Ddb(9, kBlock + 1, one, 0));                             // too long
  Push(ts::Ddb(9, 1, one, 0));                                      // too short
  Push(ts::LongSection(0x3c, 1, {}, ts::Bytes(30, 0x11)));
  Push(ts::LongSection(0x3b, 1, {}, ts::Bytes(30, 0x11)));
  Push(ts::ShortSection(0x3b, ts::Bytes(30, 0x11)));
  PushBlocks(one, 1);
  EXPECT_THAT(told, IsEmpty());
  Push(ts::Ddb(9, kBlock, one, 0));
  EXPECT_THAT(told, ElementsAre("1 v0 first module"));
}

TEST_F(CarouselTest, TruncatedMessagesAreLeftOut) {
  for (const ts::Bytes &whole : {ts::Dii(9, kBlock, {one, two}), ts::Ddb(9, kBlock, one, 0)}) {
    for (std::size_t size = 12; size < whole.size(); ++size) {
      const ts::Bytes body(whole.begin() + 8, whole.begin() + static_cast<long>(size));
      Push(ts::LongSection(whole[0], 1, {}, body));
    }
  }
  EXPECT_THAT(told, IsEmpty());
}

TEST_F(CarouselTest, ModulesLargerThanTheMemoryAreLeftOut) {
  ts::Bytes dii = ts::Dii(9, 4000, {one});
  const std::size_t size_at = dii.size() - 4 - 2 - 2 - 4;
  for (const std::uint32_t size : {0xffffffffU, 2U << 20}) {
    ts::Bytes body(dii.begin() + 8, dii.end() - 4);
    const ts::Bytes claimed = ts::Be32(size);
    std::copy(claimed.begin(), claimed.end(), body.begin() + static_cast<long>(size_at - 8));
    Push(ts::LongSection(0x3b, 1, {}, body));
    Push(ts::Ddb(9, 4000, {1, 0, ts::Bytes(4000, 1)}, 0));
  }
  EXPECT_TRUE(budget.Take((1 << 20) - 8192)); // hardly anything was taken
}

TEST_F(CarouselTest, EndlessCarouselsTakeNoMoreThanTheyMay) {
  for (unsigned download = 0; download < 1000; ++download) { // the memory holds a third of these
    Push(ts::Dii(download, 4000, {{1, 0, ts::Bytes(3000, 1)}}));
    Push(ts::Ddb(download, 4000, {1, 0, ts::Bytes(3000, 1)}, 0));
    Push(ts::Ddb(download + 1'000'000, 4000, {1, 0, ts::Bytes(3000, 1)}, 0)); // never described
  }
  EXPECT_GT(told.size(), 100U);
  EXPECT_LT(told.size(), 400U);
}

TEST_F(CarouselTest, ModulesOfMoreBlocksThanNumbersTakeNoMemory) {
  const ts::Module module{1, 0, ts::Bytes(70'000, 1)};
  Push(ts::Dii(9, 1, {module}));
  Push(ts::Ddb(9, 1, module, 0));
  EXPECT_TRUE(budget.Take((1 << 20) - 1024));
}

TEST_F(CarouselTest, ModulesThatNeverComeTakeNoMoreThanTheyMay) {
  unsigned id = 0;
  for (unsigned message = 0; message < 20; ++message) {
    std::vector<ts::Module> modules;
    for (int i = 0; i < 300; ++i) {
      modules.push_back({++id, 0, {1}});
    }
    Push(ts::Dii(9, kBlock, modules));
  }
  EXPECT_FALSE(budget.Take(256)); // each of them costs as much
}

TEST_F(CarouselTest, BlocksThatAreNeverDescribedTakeNoMoreThanTheyMay) {
  for (unsigned i = 0; i < 100; ++i) {
    Push(ts::Ddb(9, 4000, {1, 0, ts::Bytes(400'000, 1)}, i));
  }
  EXPECT_TRUE(budget.Take((1 << 20) - (256 << 10)));
}

TEST_F(CarouselTest, ModulesThatAreNotKeptLeaveTheirMemoryToOthers) {
  Budget small(10'000);
  Carousel other(small, false);
  for (unsigned id = 1; id <= 3; ++id) {
    const ts::Module module{id, 0, ts::Bytes(6000, 'x')};
    for (const ts::Bytes &section :
         {ts::Dii(9, 3000, {module}), ts::Ddb(9, 3000, module, 0), ts::Ddb(9, 3000, module, 1)}) {
      other.Push(Section(Bytes(section)), [this](const CarouselModule &complete) { Tell(complete); });
    }
  }
  EXPECT_EQ(told.size(), 3U);
}

TEST_F(CarouselTest, ModulesForWhichNoMemoryIsLeftAreLeftOut) {
  Budget small(10'000);
  Carousel other(small, true);
  for (unsigned id = 1; id <= 2; ++id) {
    const ts::Module module{id, 0, ts::Bytes(6000, 'x')};
    for (const ts::Bytes &section :
         {ts::Dii(9, 3000, {module}), ts::Ddb(9, 3000, module, 0), ts::Ddb(9, 3000, module, 1)}) {
      other.Push(Section(Bytes(section)), [this](const CarouselModule &complete) { Tell(complete); });
    }
  }
  EXPECT_EQ(told.size(), 1U);
}

TEST_F(CarouselTest, CompleteModulesStayUntilARestart) {
  Push(ts::Dii(9, kBlock, {one, two}));
  PushBlocks(one);
  Push(ts::Ddb(9, kBlock, two, 0));
  told.clear();
  carousel.ForEachComplete([this](const CarouselModule &module) { Tell(module); });
  EXPECT_THAT(told, ElementsAre("1 v0 first module"));
  carousel.Restart();
  told.clear();
  carousel.ForEachComplete([this](const CarouselModule &module) { Tell(module); });
  EXPECT_THAT(told, IsEmpty());
  Push(ts::Dii(9, kBlock, {one, two}));
  PushBlocks(one);
  EXPECT_THAT(told, ElementsAre("1 v0 first module"));
}

TEST_F(CarouselTest, GivesBackWhatItTook) {
  {
    Budget all(10'000);
    {
      Carousel other(all, true);
      for (const ts::Bytes &section :
           {ts::Dii(9, kBlock, {one, two}), ts::Ddb(9, kBlock, one, 0), ts::Ddb(3, 4, one, 0)}) {
        other.Push(Section(Bytes(section)), [](const CarouselModule &) {});
      }
      EXPECT_FALSE(all.Take(10'000));
    }
    EXPECT_TRUE(all.Take(10'000));
  }
}
