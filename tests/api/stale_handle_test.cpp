// A closed handle whose place in memory was taken again, by a device that is no handle.
#include "api/api_test.h"
#include "api/handle_table.h"
#include "discovery/node_matchers.h"

namespace qzhid::test {
namespace {

TEST_F(ApiTest, AClosedHandleIsRefusedWhateverStandsInItsPlace) {
  Open();
  QZ_CloseDev(handle);
  const auto occupant = std::make_shared<CHidDev>(NodeMatchers());
  void* const closed = handle;
  handle = nullptr;
  Open();
  EXPECT_EQ(kStatusRefused, QZ_HidI2CConfig(closed, 0xA0, 2, 1));
  EXPECT_EQ("3 Unknow Dev!!\n", Said("QZ_HidI2CConfig"));
  EXPECT_EQ(0u, QZ_HidI2CConfig(handle, 0xA0, 2, 1));
}

}  // namespace
}  // namespace qzhid::test
