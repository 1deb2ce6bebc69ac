// The protocol after an import: submit, unlink, and what ends the connection.
#include "qzhub/device_link.h"

#include "link_bench.h"
#include "usbip_client.h"

namespace qzhub::test {

using virtualhub::Fault;

class DeviceLinkTest : public LinkBench {
 protected:
  DeviceLinkTest() { Install(virtualhub::test::OneHub(R"("out_endpoint": "both")")); }
  ~DeviceLinkTest() override { link.reset(); }

  void Connect() {
    link.reset();
    Forget();
    link = std::make_unique<DeviceLink>(
        *machine, *machine->OnBus("hub"), kDevid,
        DeviceLink::Connection{[this](ByteView message) { return Note(Describe(message)); },
                               [this] { Note("closed"); }});
  }

  std::unique_ptr<DeviceLink> link;
};

TEST_F(DeviceLinkTest, EveryTransferIsAnsweredInOrder) {
  Connect();
  machine->AddFault({.on = Fault::On::Output, .nth = 2, .code = 13});
  machine->AddFault({.on = Fault::On::Output, .nth = 3, .code = 0});
  Bytes lessRoom = Submit(10, kGetStatus), saysIn = Submit(11, "00 00 00 00 00 00 02 00", Bytes(2));
  Bytes report = Hex(kEnable);
  report.resize(320);
  lessRoom[27] = 1;
  saysIn[40] = 0x80;
  const Bytes all = Submit(1, "80 08 00 00 00 00 01 00") + SubmitRequest(2, kEnable) +
                    SubmitRequest(3, kEnable) + SubmitRequest(4, kEnable) +
                    Submit(5, "C0 01 00 00 00 00 01 00") +   // unknown
                    SubmitInterrupt(6) + Submit(7, kHalt) +  // which ends 6
                    SubmitInterrupt(8) + Submit(9, kGetStatus) + lessRoom + saysIn +
                    Submit(12, "23 03 04 00 00 00 00 00") +  // resets the port and the halt
                    SubmitInterrupt(13) + SubmitInterrupt(14, report);
  for (const std::uint8_t byte : all) ASSERT_TRUE(link->Receive({&byte, 1}));
  ExpectAnswers({"1: 0 01", "2: 0", "3: -13", "4: -71", "5: -32", "7: 0", "6: -32", "8: -32",
                 "9: 0 01 00", "10: 0 01", "11: -32", "12: 0", "14: 0"});
  EXPECT_EQ(4u, machine->exchanges()) << "one is of the interrupt endpoint";
}

TEST_F(DeviceLinkTest, UnlinkTakesBackWhatIsNotDone) {
  Connect();
  Gate gate(*machine);
  ASSERT_TRUE(link->Receive(SubmitInterrupt(1) + Submit(2, kGetStatus)));
  ExpectAnswers({"2: 0 01 00"});
  ASSERT_TRUE(link->Receive(SubmitRequest(3, kEnable) + SubmitRequest(4, kEnable)));
  gate.WaitUntilReached();  // 3 is under way, 4 waits, 1 is idle, 2 is done
  for (std::uint32_t victim = 1; victim <= 5; ++victim) {
    ASSERT_TRUE(link->Receive(UnlinkCommand(10 + victim, victim)));
  }
  gate.Open();
  ASSERT_TRUE(link->Receive(Submit(20, kHalt)));  // which would end 1
  ASSERT_TRUE(link->Receive(Submit(3, kGetStatus)));
  ExpectAnswers({"2: 0 01 00", "unlink 11: -104", "unlink 12: 0", "unlink 13: -104",
                 "unlink 14: -104", "unlink 15: 0", "20: 0", "3: 0 01 00"});
  EXPECT_EQ(1u, machine->exchanges()) << "4 did not reach the hub";
}

TEST_F(DeviceLinkTest, WhatIsNoCommandEndsTheConnection) {
  const std::tuple<const char*, std::size_t, std::uint8_t> rows[] = {
      {"unknown command", 3, 5},      {"an answer", 3, 3},    {"number in use", 7, 1},
      {"another device", 11, 2},      {"direction 2", 15, 2}, {"endpoint 16", 19, 16},
      {"a negative length", 24, 128}, {"64 KiB", 25, 1},      {"isochronous packets", 32, 0}};
  for (const auto& [what, at, value] : rows) {
    Bytes command = SubmitRequest(2, kEnable);
    command[at] = value;
    Connect();
    ASSERT_TRUE(link->Receive(SubmitInterrupt(1)));
    EXPECT_FALSE(link->Receive(command)) << what;
  }
  Connect();
  for (std::uint32_t i = 1; i <= 65; ++i) ASSERT_TRUE(link->Receive(SubmitInterrupt(i)));
  ExpectAnswers({"65: -12"});  // but too many of them are only rejected
}

TEST_F(DeviceLinkTest, TheLinkEndsWithTheDevice) {
  machine->AddFault({.on = Fault::On::Output, .action = Fault::Action::Unplug, .returnMs = 10});
  Connect();
  ASSERT_TRUE(link->Receive(SubmitInterrupt(1) + SubmitRequest(2, kEnable)));
  ExpectAnswers({"2: -71", "closed"});  // in the middle of a transfer
  EXPECT_FALSE(link->Receive(Submit(3, kGetStatus)));
  EXPECT_TRUE(link->HasEnded());
  ASSERT_TRUE(Pause());
  Connect();
  ASSERT_TRUE(link->Receive(SubmitRequest(4, kReset)));
  ExpectAnswers({"4: 0"});
  EXPECT_FALSE(link->HasEnded());
  machine->SleepMs(100);
  ExpectAnswers({"4: 0", "closed"});  // by itself
  ASSERT_TRUE(Pause());
  refusing = true;
  Connect();
  ASSERT_TRUE(link->Receive(Submit(5, kGetStatus)));
  ExpectAnswers({"5: 0 01 00", "closed"});  // when its answers do not get through
}

}  // namespace qzhub::test
