// The protocol after an import: submit, unlink, and what ends the connection.
#include "qzhub/device_link.h"

#include "usbip_client.h"

namespace qzhub::test {

namespace {

using virtualhub::Fault;

class DeviceLinkTest : public virtualhub::test::HubBench {
 protected:
  using Texts = std::vector<std::string>;

  DeviceLinkTest() { Install(virtualhub::test::OneHub()); }
  ~DeviceLinkTest() override { link.reset(); }

  void Connect() {
    link.reset();
    notes.clear();
    link = std::make_unique<DeviceLink>(
        *machine, *machine->OnBus("hub"), kDevid,
        DeviceLink::Connection{[this](ByteView message) { return Note(Describe(message)); },
                               [this] { Note("closed"); }});
  }
  bool Note(const std::string& text) {
    const std::lock_guard<std::mutex> guard(mutex);
    notes.push_back(text);
    changed.notify_all();
    return !refusing;
  }
  /// All answers and the closing of the connection, in order; waits for that many.
  Texts Answers(std::size_t count) {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [&] { return notes.size() >= count; });
    return notes;
  }

  std::mutex mutex;
  std::condition_variable changed;
  Texts notes;
  bool refusing = false;  // answers cannot be sent
  std::unique_ptr<DeviceLink> link;
};

TEST_F(DeviceLinkTest, EveryTransferIsAnsweredInOrder) {
  Connect();
  machine->AddFault({.on = Fault::On::Output, .nth = 2, .code = 13});
  machine->AddFault({.on = Fault::On::Output, .nth = 3, .code = 0});
  Bytes lessRoom = Submit(10, kGetStatus), saysIn = Submit(11, "00 00 00 00 00 00 02 00", Bytes(2));
  lessRoom[27] = 1;
  saysIn[40] = 0x80;
  const Bytes all = Submit(1, "80 08 00 00 00 00 01 00") + SubmitRequest(2, kEnable) +
                    SubmitRequest(3, kEnable) + SubmitRequest(4, kEnable) +
                    Submit(5, "C0 01 00 00 00 00 01 00") +  // unknown
                    Submit(6, "23 03 04 00 00 00 00 00") +  // resets the port
                    Submit(7, "02 03 00 00 81 00 00 00") +  // halts the endpoint
                    SubmitInterrupt(8) + Submit(9, kGetStatus) + lessRoom + saysIn;
  for (const std::uint8_t byte : all) ASSERT_TRUE(link->Receive({&byte, 1}));
  EXPECT_EQ((Texts{"1: 0 01", "2: 0", "3: -13", "4: -71", "5: -32", "6: 0", "7: 0", "8: -32",
                   "9: 0 01 00", "10: 0 01", "11: -32"}),
            Answers(11));
}

TEST_F(DeviceLinkTest, OutputReportsReachTheInterruptEndpoint) {
  Bytes report = FromHex(kEnable);
  report.resize(320);
  for (const auto& [endpoint, answer] : {std::pair("none", "1: -32"), std::pair("both", "1: 0")}) {
    link.reset();
    Install(virtualhub::test::OneHub(R"("out_endpoint": ")" + std::string(endpoint) + '"'));
    Connect();
    ASSERT_TRUE(link->Receive(SubmitInterruptOut(1, report)));
    EXPECT_EQ(Texts{answer}, Answers(1));
  }
  EXPECT_EQ(1u, machine->exchanges());
}

TEST_F(DeviceLinkTest, UnlinkTakesBackWhatIsNotDone) {
  Connect();
  Gate gate(*machine);
  ASSERT_TRUE(link->Receive(SubmitInterrupt(1) + Submit(2, kGetStatus)));
  Answers(1);
  ASSERT_TRUE(link->Receive(SubmitRequest(3, kEnable) + SubmitRequest(4, kEnable)));
  gate.WaitUntilReached();  // 3 is under way, 4 waits, 1 is idle, 2 is done
  for (std::uint32_t victim = 1; victim <= 5; ++victim) {
    ASSERT_TRUE(link->Receive(UnlinkCommand(10 + victim, victim)));
  }
  EXPECT_EQ((Texts{"2: 0 01 00", "unlink 11: -104", "unlink 12: 0", "unlink 13: -104",
                   "unlink 14: -104", "unlink 15: 0"}),
            Answers(6));
  gate.Open();
  ASSERT_TRUE(link->Receive(Submit(3, kGetStatus)));
  EXPECT_EQ("3: 0 01 00", Answers(7).back()) << "the first 3 and 4 are not answered";
  EXPECT_EQ(1u, machine->exchanges()) << "4 did not reach the hub";
}

TEST_F(DeviceLinkTest, WhatIsNoCommandEndsTheConnection) {
  const auto with = [](std::size_t at, std::uint8_t value) {
    Bytes command = SubmitRequest(2, kEnable);
    command[at] = value;
    return command;
  };
  const std::pair<const char*, Bytes> cases[] = {
      {"unknown command", with(3, 5)},      {"an answer", with(3, 3)},
      {"another device", with(11, 2)},      {"direction 2", with(15, 2)},
      {"endpoint 16", with(19, 16)},        {"64 KiB", with(25, 1)},
      {"a negative length", with(24, 128)}, {"isochronous packets", with(32, 0)},
      {"number in use", SubmitInterrupt(1)}};
  for (const auto& [what, bytes] : cases) {
    Connect();
    ASSERT_TRUE(link->Receive(SubmitInterrupt(1)));
    EXPECT_FALSE(link->Receive(bytes)) << what;
  }
  Connect();
  for (std::uint32_t i = 1; i <= 65; ++i) ASSERT_TRUE(link->Receive(SubmitInterrupt(i)));
  EXPECT_EQ(Texts{"65: -12"}, Answers(1)) << "but too many of them are only rejected";
}

TEST_F(DeviceLinkTest, TheLinkEndsWithTheDevice) {
  machine->AddFault({.on = Fault::On::Output, .action = Fault::Action::Unplug, .returnMs = 10});
  Connect();
  ASSERT_TRUE(link->Receive(SubmitInterrupt(1) + SubmitRequest(2, kEnable)));
  EXPECT_EQ((Texts{"2: -71", "closed"}), Answers(2)) << "in the middle of a transfer";
  EXPECT_FALSE(link->Receive(Submit(3, kGetStatus)));
  EXPECT_TRUE(link->HasEnded());
  ASSERT_TRUE(Pause());
  Connect();
  ASSERT_TRUE(link->Receive(SubmitRequest(4, kReset)));
  EXPECT_EQ(Texts{"4: 0"}, Answers(1));
  machine->SleepMs(100);
  EXPECT_EQ((Texts{"4: 0", "closed"}), Answers(2)) << "by itself";
  ASSERT_TRUE(Pause());
  refusing = true;
  Connect();
  ASSERT_TRUE(link->Receive(Submit(5, kGetStatus)));
  EXPECT_EQ("closed", Answers(2)[1]) << "when its answers do not get through";
}

}  // namespace

}  // namespace qzhub::test
