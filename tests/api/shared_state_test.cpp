// What the exports share: the handles of hosts and the last device list.
#include "api/api_test.h"
#include "api/dev_list_cache.h"
#include "api/handle_table.h"
#include "discovery/node_matchers.h"

namespace qzhid::test {
namespace {

using SharedStateTest = ApiTest;

TEST_F(SharedStateTest, AClosedHandleIsRejectedWhateverIsInItsPlaceInMemory) {
  Open();
  QZ_CloseDev(handle);
  const auto occupant = std::make_shared<CHidDev>(NodeMatchers());
  void* const closed = std::exchange(handle, nullptr);
  Open();
  EXPECT_EQ(kRejected, QZ_HidI2CConfig(closed, 0xA0, 2, 1));
  EXPECT_EQ(1u, Count({3, "QZ_HidI2CConfig", "Unknow Dev!!\n"}));
  EXPECT_EQ(0u, QZ_HidI2CConfig(handle, 0xA0, 2, 1));
}

TEST_F(SharedStateTest, AHandleIsFoundUntilItIsTakenAndItsDeviceOutlivesThat) {
  CHandleTable& table = CHandleTable::Instance();
  const auto dev = std::make_shared<CHidDev>(NodeMatchers());
  void* const added = table.Add(dev);
  EXPECT_EQ(dev.get(), added);
  EXPECT_EQ(dev, table.Find(added));
  EXPECT_EQ(dev, table.FindHidDev("tag", added));
  EXPECT_EQ(dev, table.Take(added));
  EXPECT_EQ(nullptr, table.Take(added));
  EXPECT_EQ(nullptr, table.Find(added));
  EXPECT_EQ(1, dev.use_count());
}

TEST_F(SharedStateTest, ADeviceOfAnotherClassIsNoHidDevice) {
  CHandleTable& table = CHandleTable::Instance();
  void* const added = table.Add(std::make_shared<CUSBDev>(NodeMatchers()));
  EXPECT_EQ(nullptr, table.FindHidDev("tag", added));
  EXPECT_EQ((Lines{{3, "tag", "Unknow Dev!!\n"}}), Logged());
  EXPECT_NE(nullptr, table.Take(added));
}

TEST_F(SharedStateTest, ADeviceIsSearchedAmongTheRecordsThatAreHeldAndCounted) {
  CDevListCache& cache = CDevListCache::Instance();
  HidDevRecord records[3] = {};
  for (std::uint32_t i = 0; i < 3; ++i) {
    records[i].dwInst = i < 2 ? 7 : 9;  // the first of two wins
    records[i].Port = i;
  }
  cache.Clear();
  EXPECT_EQ(nullptr, cache.Find(7));
  cache.Store(records, 3);
  ASSERT_NE(nullptr, cache.Find(7));
  EXPECT_EQ(0u, cache.Find(7)->Port);
  ASSERT_NE(nullptr, cache.Find(9));
  cache.Store(nullptr, 2);
  EXPECT_EQ(nullptr, cache.Find(9)) << "no longer counted";
  EXPECT_NE(nullptr, cache.Find(7));
  cache.Store(nullptr, 0);
  EXPECT_NE(nullptr, cache.Find(7)) << "a listing that found none keeps the count";
  cache.Clear();
  EXPECT_EQ(nullptr, cache.Find(7));
}

TEST_F(SharedStateTest, ARecordOfAnotherTypeIsNotOpened) {
  List();
  HidDevRecord record = *CDevListCache::Instance().Find(machine->HidInstance("hub"));
  record.dwDevType = QZ_DEVICE_TYPE_HID + 1;
  CDevListCache::Instance().Store(&record, 1);
  ClearRecords();
  EXPECT_EQ(nullptr, QZ_OpenHid(record.dwInst));
  EXPECT_THAT(Outputs(), IsEmpty());
}

}  // namespace
}  // namespace qzhid::test
