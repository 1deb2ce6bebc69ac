// What the exports share: the handles of hosts and the last device list.
#include "api/api_test.h"
#include "api/dev_list_cache.h"
#include "api/handle_table.h"
#include "discovery/node_matchers.h"

namespace qzhid::test {
namespace {

using SharedStateTest = ApiTest;

TEST_F(SharedStateTest, AHandleOwnsItsDeviceAndADeviceOfAnotherClassIsNoHidDevice) {
  CHandleTable& table = CHandleTable::Instance();
  const auto dev = std::make_shared<CUSBDev>(NodeMatchers());
  void* const added = table.Add(dev);
  EXPECT_EQ(dev, table.Find(added));
  EXPECT_EQ(nullptr, table.FindHidDev("tag", added));
  EXPECT_EQ((Lines{{3, "tag", "Unknow Dev!!\n"}}), Logged());
  EXPECT_EQ(dev, table.Take(added));
  EXPECT_EQ(nullptr, table.Find(added));
  EXPECT_EQ(1, dev.use_count());
}

TEST_F(SharedStateTest, OnlyCountedRecordsOfHidDevicesAreOpenedTheFirstOfANumber) {
  CDevListCache& cache = CDevListCache::Instance();
  List();
  const auto number = machine->HidInstance("hub");
  std::vector<HidDevRecord> records(3, *cache.Find(number));
  records[1].LocationPath[0] = 0;
  records[2].dwInst = number + 1;
  records[2].dwDevType = QZ_DEVICE_TYPE_HID + 1;
  cache.Store(records.data(), 3);
  EXPECT_EQ(nullptr, QZ_OpenHid(number + 1)) << "of another type";
  EXPECT_THAT(Outputs(), IsEmpty());
  handle = QZ_OpenHid(number);
  EXPECT_NE(nullptr, handle);
  cache.Store(nullptr, 2);
  EXPECT_EQ(nullptr, cache.Find(number + 1)) << "no longer counted";
  cache.Store(nullptr, 0);
  EXPECT_NE(nullptr, cache.Find(number)) << "a listing that found none keeps the count";
}

}  // namespace
}  // namespace qzhid::test
