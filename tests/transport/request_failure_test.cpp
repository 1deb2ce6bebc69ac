// Requests that fail: results, log lines, and what happens while another thread holds the device.
#include <atomic>
#include <future>
#include <thread>

#include "transport/transport_test.h"

namespace qzhid::test {
namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;
using virtualhub::Fault;

class RequestFailureTest : public TransportTest {
 protected:
  RequestFailureTest() { EXPECT_EQ(0u, requests.Yv_VdCmdEnable(1)); }

  /// Milliseconds of each pause on the record.
  std::vector<std::uint32_t> Pauses() const {
    std::vector<std::uint32_t> pauses;
    for (const auto& call : world->recorder().Calls("SleepMs")) pauses.push_back(call.value);
    return pauses;
  }
  void FailNext(Fault::On on, std::uint32_t code) {
    world->AddFault({.on = on, .action = Fault::Action::Fail, .code = code});
  }
};

TEST_F(RequestFailureTest, FailedReportsReturnTheirCodeAndSayEverything) {
  constexpr auto kOutput = Fault::On::Output, kInput = Fault::On::Input;
  const struct {
    Fault::On on;
    std::uint8_t type;
    std::uint32_t code;
    std::int32_t result;
    std::vector<std::array<std::string, 2>> lines;  // operation, text
  } rows[] = {
      {kOutput, 0x40, 5, 5, {{"HidDataOut", "Set Report Fail,ErrorCode:5\n"}}},
      {kOutput, 0xC0, 31, 31, {{"HidDataIn", "Set Report Fail,ErrorCode:31\n"}}},
      {kOutput, 0x40, 0, -1, {{"HidDataOut", "Set Report Fail,ErrorCode:-1\n"}}},
      {kInput,
       0xC0,
       503,
       503,
       {{"Hid_GetReport", "Get Report Fail,Last Error Code is 0x000001f7\n"},
        {"HidDataIn", "Get Report Fail,ErrorCode:503\n"}}},
  };
  for (const int channel : {1, 2}) {
    for (const auto& row : rows) {
      FailNext(row.on, row.code);
      log.Clear();
      Bytes data(20, 0x5A);
      EXPECT_EQ(static_cast<std::uint32_t>(row.result),
                Send(channel, row.type, 0x09, data.data(), 20, 0x1234));
      EXPECT_EQ(Bytes(20, 0x5A), data);
      std::vector<LogLine> expected;
      for (const auto& [operation, text] : row.lines) {
        expected.push_back({3, Tag(operation, channel), text});
      }
      for (const std::string& text :
           {"RequestType: " + std::string(row.type == 0x40 ? "0x40" : "0xc0") + ", Request: 0x09",
            std::string("wValue: 0x1122, wIndex: 0x3344"), std::string("dwLength: 0x14"),
            std::string("ulTimeout: 0x1234"), "return " + std::to_string(row.result)}) {
        expected.push_back({0, Tag("Yv_SendVDCmd", channel), "YvHub_SendVDCmd -> " + text + "\n"});
      }
      EXPECT_THAT(log.lines, ElementsAreArray(expected));
    }
  }
}

TEST_F(RequestFailureTest, ReadThatFailsWithoutCodeDelivers) {
  for (const int channel : {1, 2}) {
    FailNext(Fault::On::Input, 0);
    Bytes data(21, 0x5A), expected(21, 0);  // the report that it left, which was cleared before
    expected[20] = 0x5A;
    EXPECT_EQ(0u, Send(channel, 0xC0, 0x09, data.data(), 20));
    EXPECT_EQ(expected, data);
  }
  EXPECT_THAT(log.lines, IsEmpty());
}

TEST_F(RequestFailureTest, RefusalLossAndClosingReturnTheSystemsCode) {
  EXPECT_EQ(kStalled, Send(1, 0x40, 0x77, nullptr, 0));
  world->Unplug("hub");
  EXPECT_EQ(static_cast<std::uint32_t>(ENODEV), Send(1, 0x40, 0x77, nullptr, 0));
  property->Yv_CloseDevice();
  log.Clear();
  EXPECT_EQ(static_cast<std::uint32_t>(EBADF), requests.Yv_CtlPipeOut({0x40, 0xC6}, nullptr));
  EXPECT_EQ(1u, log.lines.size());  // packets have no trace
}

TEST_F(RequestFailureTest, NamedRequestsWaitFiveSecondsAndValidationTenTimesThat) {
  property->Yv_CloseDevice();
  log.Clear();
  std::uint8_t buffer[kStatusBlockSize] = {};
  requests.Yv_VdCmdEnable(1);
  requests.Yv_Status(buffer);
  requests.Yv_WriteFlash2(0, buffer, 1);
  requests.Yv_ReadFlash2(0, buffer, 1);
  requests.Yv_EraseFlash2(0);
  requests.Yv_FWReset(0);
  requests.Yv_ResetCode();
  requests.Yv_SetDLSlaveAddr(1, 1);
  constexpr const char* kTag = "CHidTransfers::Yv_SendVDCmd";
  EXPECT_EQ(8u, log.Count({0, kTag, "YvHub_SendVDCmd -> ulTimeout: 0x1388\n"}));
  requests.Yv_ISPValidation();
  EXPECT_EQ(1u, log.Count({0, kTag, "YvHub_SendVDCmd -> ulTimeout: 0xc350\n"}));
}

/// Another thread's request that stays in its exchange until it is let go.
struct Holder {
  Holder(virtualhub::World& world, ITransfers& transfers) {
    world.SetExchangeHook([this](const virtualhub::Exchange&) {
      if (entered.exchange(true)) return;
      released.get_future().wait();
    });
    thread = std::thread([&] { transfers.Yv_SendVDCmd(0x40, 0x02, 1, 0x2E7C, nullptr, 0, 5000); });
    while (!entered) std::this_thread::yield();
    world.SetExchangeHook(nullptr);
  }
  void Release() {
    released.set_value();
    thread.join();
  }

  std::atomic<bool> entered{false};
  std::promise<void> released;
  std::thread thread;
};

TEST_F(RequestFailureTest, HeldDeviceIsPolledEvery100MsUntilTheTimeOutIsExceeded) {
  const struct {
    std::uint32_t timeoutMs;
    std::size_t tries;
  } rows[] = {{0, 1}, {99, 1}, {100, 2}, {250, 3}, {5000, 51}};
  Bytes data(20);
  Holder holder(*world, *transfers);
  for (const int channel : {1, 2}) {
    for (const std::uint8_t type : Bytes{0x40, 0xC0}) {
      for (const auto& row : rows) {
        const std::string tag = Tag(type == 0x40 ? "HidDataOut" : "HidDataIn", channel);
        SCOPED_TRACE(tag + " " + std::to_string(row.timeoutMs));
        ClearRecords();
        EXPECT_EQ(kRefused, Send(channel, type, 0x09, data.data(), 20, row.timeoutMs));
        std::vector<LogLine> expected(row.tries, {3, tag, "Can't Obtain Lock!\n"});
        expected.push_back({3, tag, "WqHIDDataIn Timeout Fail! \n"});
        EXPECT_THAT(log.From(3), ElementsAreArray(expected));
        EXPECT_EQ(std::vector<std::uint32_t>(row.tries, 100), Pauses());
      }
    }
  }
  using Packet = std::uint32_t (ITransfers::*)(const PacketHeader&, std::uint8_t*);
  for (const Packet send : {&ITransfers::SendPacketOut, &ITransfers::SendPacketIn,
                            &ITransfers::SendPacketOut2, &ITransfers::SendPacketIn2}) {
    ClearRecords();
    EXPECT_EQ(kRefused, (static_cast<ITransfers*>(transfers)->*send)({}, nullptr));
    EXPECT_EQ(51u, Pauses().size());
  }
  EXPECT_EQ(2u, world->exchanges());  // that of the fixture and the one that is held
  holder.Release();
  EXPECT_EQ(0u, Send(1, 0xC0, 0x09, data.data(), 20, 0));
}

TEST_F(RequestFailureTest, DeviceThatBecomesFreeInTimeIsUsed) {
  Holder holder(*world, *transfers);
  struct Releaser final : SilentReceiver {
    explicit Releaser(Holder& held) : holder(held) {}
    void OnLog(const char*, int) override {
      if (++lines == 3) holder.Release();
    }
    Holder& holder;
    int lines = 0;
  } releaser(holder);
  CMsg::Instance().AddResponder(&releaser);
  Bytes data(20);
  EXPECT_EQ(0u, Send(1, 0xC0, 0x09, data.data(), 20, 300));  // the last try of that time-out
  EXPECT_EQ(3u, log.Count({3, "CHidTransfers::HidDataIn", "Can't Obtain Lock!\n"}));
  EXPECT_EQ(3u, log.lines.size());
  CMsg::Instance().RemoveResponder(&releaser);
}

}  // namespace
}  // namespace qzhid::test
