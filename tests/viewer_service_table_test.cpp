// How the viewer reads the table of services, which may be damaged.
#include <gmock/gmock.h>

#include "service_table.h"

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace {

using Bytes = std::vector<unsigned char>;

TEST(ServiceTable, HasTheNamesThatWerePutIn) {
  EXPECT_THAT(ServiceNames(MakeServiceTable({"One", "Two", ""})), ElementsAre("One", "Two", ""));
  EXPECT_THAT(ServiceNames(MakeServiceTable({})), IsEmpty());
}

TEST(ServiceTable, StepsOverOtherDescriptors) {
  Bytes table = MakeServiceTable({"One"});
  const Bytes other = {0x5d, 2, 0x48, 0x48};
  table.insert(table.begin() + 16, other.begin(), other.end());
  table[15] = static_cast<unsigned char>(table[15] + other.size());
  EXPECT_THAT(ServiceNames(table), ElementsAre("One"));
  table[20] = 0x5d; // instead of the one with the name
  EXPECT_THAT(ServiceNames(table), ElementsAre(""));
}

TEST(ServiceTable, ToleratesSectionsThatAreTooShort) {
  const Bytes table = MakeServiceTable({"One", "Two"});
  for (size_t size = 0; size < table.size(); ++size) {
    const std::vector<std::string> names = ServiceNames(Bytes(table.begin(), table.begin() + static_cast<long>(size)));
    EXPECT_THAT(names, SizeIs(testing::Le(2U)));
    EXPECT_THAT(names, testing::Each(testing::AnyOf("One", "")));
  }
}

TEST(ServiceTable, ToleratesLengthsThatAreWrong) {
  const Bytes table = MakeServiceTable({"One", "Two"});
  for (size_t at = 11; at < table.size() - 4; ++at) {
    Bytes damaged = table;
    damaged[at] = 0xff;
    EXPECT_THAT(ServiceNames(damaged), SizeIs(testing::Le(2U)));
  }
}

} // namespace
