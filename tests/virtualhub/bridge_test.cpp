// What is behind the hub: I2C targets, the bridge flash, GPIO lines; and the tunnel itself.
#include <cstdlib>
#include <new>

#include "hub_bench.h"

namespace {

std::size_t g_Allocations = 0;

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  ++g_Allocations;
  return std::malloc(size);
}
void* operator new(std::size_t size) {
  if (void* memory = operator new(size, std::nothrow)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace virtualhub::test {

namespace {

using TunnelTest = HubBench;

class BridgeTest : public HubBench {
 protected:
  BridgeTest() {
    Install(R"({"devices": [{"name": "hub", "port": "1", "gpio_high": [23],
        "bridge_flash": {"busy_polls": 1},
        "i2c": [{"kind": "eeprom", "address": "0xA0", "size": 256, "page_size": 16},
                {"kind": "eeprom", "address": "0xA2", "address_bytes": 5},
                {"kind": "block", "address": "0x42", "busy_polls": 2},
                {"kind": "block", "address": "0x43", "final_status": 3}]}]})");
  }
  bool WriteI2c(const Bytes& address, std::uint8_t slave, std::uint8_t count, const Bytes& data,
                std::uint8_t options = 0x81) {
    return Sent({0x40, 0xC6, address[0], address[1], address[2], address[3],
                 static_cast<std::uint8_t>(data.size()), address[4], slave, count, options},
                data);
  }
  Bytes ReadI2c(const Bytes& address, std::uint8_t slave, std::uint8_t count, std::uint8_t length,
                std::uint8_t type = 0x40) {
    return Ask({type, 0xD6, address[0], address[1], address[2], address[3], length, address[4],
                slave, count, 0x82},
               length);
  }
  const Bytes zero = Bytes(5, 0);
};

TEST_F(BridgeTest, EepromPagesAndAddresses) {
  ASSERT_TRUE(WriteI2c({0x1E, 0, 0, 0, 0}, 0xA0, 2, {1, 2, 3}));
  EXPECT_EQ((Bytes{3, 0xFF}), ReadI2c({0x10, 0, 0, 0, 0}, 0xA0, 2, 2)) << "wraps in its page";
  EXPECT_EQ((Bytes{1, 2, 0xFF}), ReadI2c({0x1E, 0, 0, 0, 0}, 0xA0, 2, 3, 0xC0));
  EXPECT_EQ((Bytes{0xFF}), ReadI2c(zero, 0xA0, 0, 1)) << "goes on at 0x21";
  EXPECT_EQ(2, world->hub("hub").eeprom(0xA0)->memory()[0x1F]);

  ASSERT_TRUE(WriteI2c({0x34, 0x12, 0, 0, 0}, 0xA2, 5, {7}));
  EXPECT_EQ(7, world->hub("hub").eeprom(0xA2)->memory()[0x1234]);
  EXPECT_FALSE(WriteI2c(zero, 0xA4, 2, {1})) << "nobody there";
  EXPECT_FALSE(WriteI2c(zero, 0xA0, 1, {1})) << "wrong number of address bytes";
  EXPECT_FALSE(WriteI2c(zero, 0xA2, 6, {1}));
  EXPECT_FALSE(WriteI2c(zero, 0xA0, 2, {1}, 0x01)) << "not configured";
  EXPECT_FALSE(WriteI2c(zero, 0xA0, 2, {1}, 0x83)) << "no such speed";
}

TEST_F(BridgeTest, BlockCommandsFillAndFetch) {
  const auto status = [&](std::uint8_t slave) { return ReadI2c(zero, slave, 0, 1); };
  EXPECT_EQ(Bytes{1}, status(0x42)) << "idle";
  ASSERT_TRUE(WriteI2c(zero, 0x42, 0, {6, 5, 0x10, 0x02, 2, 0xAB, 0xCD}, 0x82));
  EXPECT_EQ((Bytes{0, 0, 1}), (Bytes{status(0x42)[0], status(0x42)[0], status(0x42)[0]}));
  ASSERT_TRUE(WriteI2c(zero, 0x42, 0, {3, 3, 0x0F, 0x02, 3}, 0x82));
  const Bytes reg = {0x80, 0, 0, 0, 0};
  EXPECT_EQ((Bytes{3, 0xFF, 0xAB, 0xCD, 0}), ReadI2c(reg, 0x42, 1, 5));
  ASSERT_TRUE(WriteI2c(zero, 0x42, 0, {16, 4, 0x10, 0x02}, 0x82)) << "announces four, sends two";
  EXPECT_EQ((Bytes{59, 0xAB}), ReadI2c(reg, 0x42, 1, 2));
  EXPECT_FALSE(WriteI2c(zero, 0x42, 0, {6, 4, 0, 0, 2, 1, 2}, 0x82)) << "wrong count";
  EXPECT_FALSE(WriteI2c(zero, 0x42, 0, {8, 0}, 0x82)) << "unknown command";
  ASSERT_TRUE(WriteI2c(zero, 0x43, 0, {5, 3, 0, 0, 0}, 0x82));
  EXPECT_EQ(Bytes{3}, status(0x43)) << "the error that was asked for";

  ASSERT_TRUE(Sent({0x40, 0xDC, 0x42, 7, 0, 0, 5, 0}, {0x20, 0, 0, 1, 0x77}));
  EXPECT_EQ((Bytes{0x77, 0xFF}), Ask({0xC0, 0xEC, 0x42, 0x27, 0x20, 0, 2, 0}, 2));
  EXPECT_FALSE(Sent({0x40, 0xDC, 0xA0, 7, 0, 0, 5, 0}, {0, 0, 0, 1, 0})) << "an EEPROM";
  EXPECT_EQ((Bytes{6, 3, 16, 7, 0x27}), world->hub("hub").blockTarget(0x42)->commands());
}

TEST_F(BridgeTest, BridgeFlashIsBusyAfterEachWrite) {
  const auto status = [&] { return Ask({0xC0, 0xF3, 0, 0, 0, 0, 1, 0}, 1); };
  ASSERT_TRUE(Sent({0x40, 0xF1, 0x56, 0x34, 0x02, 0, 2, 0}, {0x0F, 0xF0}));
  EXPECT_FALSE(Sent({0x00, 0xCF, 0x56, 0x34, 0x02, 0, 1, 0}, {0})) << "busy";
  EXPECT_EQ(Bytes{1}, status());
  EXPECT_EQ(Bytes{0}, status());
  ASSERT_TRUE(Sent({0x00, 0xCF, 0x56, 0x34, 0x02, 0, 1, 0}, {0xF8}));
  const Bytes& memory = world->hub("hub").bridgeFlash().memory();
  EXPECT_EQ((Bytes{0x08, 0xF0, 0xFF}), Bytes(&memory[0x23456], &memory[0x23459]));
  status();
  ASSERT_TRUE(Sent({0x40, 0xF4, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(0xFF, memory[0x23456]);
  EXPECT_FALSE(Sent({0x40, 0xF1, 0, 0, 0x10, 0, 1, 0}, {0})) << "behind the last byte";
}

TEST_F(BridgeTest, GpioAndSettings) {
  const auto level = [&](std::uint8_t line) { return Ask({0xC0, 0x04, 0, line, 0, 0, 2, 0}, 2); };
  EXPECT_EQ((Bytes{1, 0}), level(23));
  ASSERT_TRUE(Sent({0x40, 0x0C, 0, 23, 0, 0, 0, 0}));
  EXPECT_EQ((Bytes{0, 0}), level(23));
  ASSERT_TRUE(Sent({0x40, 0x04, 1, 1, 5, 0, 0, 0}));
  EXPECT_EQ((Bytes{1, 0}), level(5));
  const Bytes refused[] = {{0xC0, 0x04, 0, 24, 0, 0, 1, 0}, {0xC0, 0x04, 5, 0, 0, 0, 1, 0},
                           {0x40, 0x0C, 0, 24, 0, 1, 0, 0}, {0x40, 0x0C, 0, 2, 1, 0, 0, 0},
                           {0x40, 0x04, 0, 1, 5, 0, 0, 0},  {0x40, 0x04, 1, 1, 24, 0, 0, 0},
                           {0x40, 0x77, 0, 0, 0, 0, 0, 0},  {0x40, 0x00, 0, 0, 0, 0, 1, 0},
                           {0x40, 0xE9, 1, 0, 0, 0, 0, 0},  {0x40, 0x06, 2, 0, 0, 0, 0, 0}};
  for (const Bytes& header : refused) EXPECT_EQ(Error::Stall, Send(header)) << int{header[1]};
  ASSERT_TRUE(Sent({0x40, 0x06, 1, 0, 0, 0, 0, 0}) && Sent({0x40, 0x08, 2, 0x50, 0, 0, 0, 0}));
  ASSERT_TRUE(Sent({0x40, 0xF6, 4, 0xA0, 0x82, 0x80, 0, 0}));
  const Hub& hub = world->hub("hub");
  EXPECT_TRUE(hub.highClock());
  EXPECT_EQ(0x5002, hub.downloadSlave());
  EXPECT_EQ((std::array<std::uint8_t, 3>{4, 0xA0, 0x82}), hub.i2cSetting());
}

TEST_F(BridgeTest, RawBlocksArriveWhole) {
  Bytes block(64);
  for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<std::uint8_t>(i);
  block[0] = 0x40;
  block[1] = 0xF2;
  ASSERT_TRUE(Sent(block));
  EXPECT_EQ(block, world->hub("hub").rawBlock());
  block[1] = 0xF5;
  const Bytes data(128, 0x5A);
  ASSERT_TRUE(Sent(block, data));
  block.insert(block.end(), data.begin(), data.end());
  EXPECT_EQ(block, world->hub("hub").rawBlock());
}

TEST_F(TunnelTest, Framing) {
  Install(R"({"devices": [{"name": "hub", "port": "1", "channels": [2]}]})");
  const DevInst node = world->HidInstance("hub");
  const Bytes enable = {0x40, 0x02, 1, 0, 0x7C, 0x2E, 0, 0};
  const Bytes status = {0xC0, 0x09, 0, 0, 0, 0, 20, 0};
  EXPECT_EQ(Error::BadReport, Send(enable)) << "channel 1 is not there";
  Bytes report = Report(enable, {}, true);
  EXPECT_EQ(Error::BadReport, world->SetOutputReport(node, ByteView(report).first(320)).error);
  EXPECT_TRUE(world->SetOutputReport(node, report).ok());

  Bytes answer(300, 0xEE);
  answer[0] = 0xF1;
  EXPECT_EQ(Error::Stall, world->GetInputReport(node, answer).error) << "nothing waits";
  ASSERT_TRUE(world->SetOutputReport(node, Report(status, {}, true)).ok());
  EXPECT_EQ(Error::BadReport, world->GetInputReport(node, MutableBytes(answer).first(256)).error);
  answer[0] = 0x00;
  EXPECT_EQ(Error::BadReport, world->GetInputReport(node, answer).error);
  answer[0] = 0xF1;
  ASSERT_TRUE(world->GetInputReport(node, answer).ok());
  EXPECT_EQ(0xF1, answer[0]);
  EXPECT_EQ(Bytes(63, 0), Bytes(&answer[1], &answer[64]));
  EXPECT_EQ((Bytes{0x2E, 0x7C, 0, 0, 0x08, 0x18}), Bytes(&answer[64], &answer[70]));
  EXPECT_EQ((Bytes{0, 0xEE}), Bytes(&answer[256], &answer[258])) << "the rest stays";
  EXPECT_EQ(Error::Stall, world->GetInputReport(node, answer).error) << "read once";
}

TEST_F(TunnelTest, DataStagesMustFit) {
  Install(R"({"devices": [{"name": "hub", "port": "1", "output_report_length": 321}]})");
  EXPECT_TRUE(Sent({0x40, 0xF1, 0, 0, 0, 0, 0x00, 1}, Bytes(256, 0)));
  EXPECT_EQ(Error::Stall, Send({0x40, 0xF1, 0, 0, 0, 0, 0x01, 1}));
  ASSERT_TRUE(Enable(1));
  EXPECT_EQ(256u, Ask({0xC0, 0xD8, 0, 0, 0, 0, 0, 2}, 256).size()) << "512 bytes are cut to 256";
  EXPECT_EQ(Bytes(20, 0), Ask({0xC0, 0x09, 0, 0, 0, 0, 0, 0}, 20)) << "none are asked for";
}

TEST_F(TunnelTest, ExchangesAllocateNothingUnlessRecorded) {
  Install(kOneHub);
  ASSERT_TRUE(Enable(1));
  const DevInst node = world->HidInstance("hub");
  const Bytes report = Report({0xC0, 0x09, 0, 0, 0, 0, 20, 0});
  Bytes answer(257, 0);
  for (const bool recorded : {false, true}) {
    if (recorded) world->recorder().Start();
    const std::size_t before = g_Allocations;
    ASSERT_TRUE(world->SetOutputReport(node, report).ok());
    ASSERT_TRUE(world->GetInputReport(node, answer).ok());
    EXPECT_EQ(recorded, g_Allocations != before);
  }
}

}  // namespace

}  // namespace virtualhub::test
