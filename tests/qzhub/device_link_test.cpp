// The protocol behind an import: submit, unlink, and what must be refused.
#include "qzhub/device_link.h"

#include <future>

#include "usbip_client.h"

namespace qzhub::test {

namespace {

using virtualhub::Fault;

const std::string kEnable = "40 02 01 00 7C 2E", kReset = "40 00";

class DeviceLinkTest : public virtualhub::test::HubBench {
 protected:
  DeviceLinkTest() { Install(virtualhub::test::OneHub()); }
  ~DeviceLinkTest() override { link.reset(); }

  void Connect() {
    link = std::make_unique<DeviceLink>(
        *world, *world->OnBus("hub"), kDevid,
        DeviceLink::Connection{[this](ByteView message) { return Note(Describe(message)); },
                               [this] { Note("closed"); }});
  }
  bool Note(const std::string& text) {
    const std::lock_guard<std::mutex> guard(mutex);
    notes.push_back(text);
    changed.notify_all();
    return !refusing;
  }
  /// The first answers, in order, and the closing of the connection; waits for them.
  std::vector<std::string> Answers(std::size_t count) {
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [&] { return notes.size() >= count; });
    return notes;
  }
  using Texts = std::vector<std::string>;

  /// Holds the next exchange up until the promise is kept.
  std::future<void> HoldUp(std::promise<void>& go) {
    auto started = std::make_shared<std::promise<void>>();
    auto released = std::make_shared<std::shared_future<void>>(go.get_future());
    world->SetExchangeHook([=, first = std::make_shared<std::atomic<bool>>(true)](const auto&) {
      if (!first->exchange(false)) return;
      started->set_value();
      released->wait();
    });
    return started->get_future();
  }

  std::mutex mutex;
  std::condition_variable changed;
  Texts notes;
  bool refusing = false;  // answers cannot be sent
  std::unique_ptr<DeviceLink> link;
};

TEST_F(DeviceLinkTest, EveryTransferIsAnsweredInOrder) {
  Connect();
  world->AddFault({.on = Fault::On::Output, .nth = 2, .code = 13});
  world->AddFault({.on = Fault::On::Output, .nth = 3, .code = 0});
  const Bytes all = Submit(1, "80 08 00 00 00 00 01 00") + SubmitRequest(2, kEnable) +
                    SubmitRequest(3, kEnable) + SubmitRequest(4, kEnable) +
                    Submit(5, "C0 01 00 00 00 00 01 00") +  // unknown
                    Submit(6, "23 03 04 00 00 00 00 00") +  // resets the port
                    Submit(7, "02 03 00 00 81 00 00 00") +  // halts the endpoint
                    SubmitInterrupt(8) + Submit(9, kGetDeviceStatus);
  for (const std::uint8_t byte : all) ASSERT_TRUE(link->Receive({&byte, 1}));
  EXPECT_EQ((Texts{"1: 0 01", "2: 0", "3: -13", "4: -71", "5: -32", "6: 0", "7: 0", "8: -32",
                   "9: 0 01 00"}),
            Answers(9));
  Bytes mixed = Submit(10, kGetDeviceStatus);  // more wanted than there is room for
  mixed[27] = 1;
  ASSERT_TRUE(link->Receive(mixed));
  mixed = Submit(11, "00 00 00 00 00 00 02 00", Bytes(2));  // goes out, says it comes in
  mixed[40] = 0x80;
  ASSERT_TRUE(link->Receive(mixed));
  EXPECT_EQ("10: 0 01", Answers(11)[9]);
  EXPECT_EQ("11: -32", Answers(11)[10]);
}

TEST_F(DeviceLinkTest, UnlinkTakesBackWhatIsNotDone) {
  Connect();
  std::promise<void> go;
  std::future<void> started = HoldUp(go);
  ASSERT_TRUE(link->Receive(SubmitInterrupt(1) + Submit(2, kGetDeviceStatus)));
  Answers(1);
  ASSERT_TRUE(link->Receive(SubmitRequest(3, kEnable) + SubmitRequest(4, kEnable)));
  started.wait();  // 3 is under way, 4 waits, 1 is idle, 2 is done
  for (std::uint32_t victim = 1; victim <= 5; ++victim) {
    ASSERT_TRUE(link->Receive(UnlinkCommand(10 + victim, victim)));
  }
  EXPECT_EQ((Texts{"2: 0 01 00", "unlink 11: -104", "unlink 12: 0", "unlink 13: -104",
                   "unlink 14: -104", "unlink 15: 0"}),
            Answers(6));
  go.set_value();
  ASSERT_TRUE(link->Receive(Submit(3, kGetDeviceStatus)));
  EXPECT_EQ("3: 0 01 00", Answers(7).back()) << "the first 3 and 4 are not answered";
  EXPECT_EQ(1u, world->exchanges()) << "4 did not reach the hub";
}

TEST_F(DeviceLinkTest, WhatIsNoCommandEndsTheConnection) {
  const auto with = [](std::size_t at, std::uint8_t value) {
    Bytes command = Submit(2, kSetReport, Bytes(0x140));
    command[at] = value;
    return command;
  };
  const std::pair<const char*, Bytes> cases[] = {{"unknown command", with(3, 5)},
                                                 {"an answer", with(3, 3)},
                                                 {"another device", with(11, 2)},
                                                 {"direction 2", with(15, 2)},
                                                 {"endpoint 16", with(19, 16)},
                                                 {"64 KiB", with(25, 1)},
                                                 {"a negative length", with(24, 128)},
                                                 {"isochronous packets", with(32, 0)},
                                                 {"sequence number in use", SubmitInterrupt(1)},
                                                 {"no USB/IP at all", Bytes(48, 'x')}};
  for (const auto& [what, bytes] : cases) {
    Connect();
    ASSERT_TRUE(link->Receive(SubmitInterrupt(1)));
    EXPECT_FALSE(link->Receive(bytes)) << what;
  }
}

TEST_F(DeviceLinkTest, OutstandingTransfersAreBounded) {
  Connect();
  for (std::uint32_t i = 1; i <= 65; ++i) ASSERT_TRUE(link->Receive(SubmitInterrupt(i)));
  EXPECT_EQ(Texts{"65: -12"}, Answers(1));
  ASSERT_TRUE(link->Receive(UnlinkCommand(70, 64) + Submit(71, kGetDeviceStatus)));
  EXPECT_EQ("71: 0 01 00", Answers(3)[2]) << "there is room again";
}

TEST_F(DeviceLinkTest, TheLinkEndsWithTheDevice) {
  world->AddFault({.on = Fault::On::Output, .action = Fault::Action::Unplug});
  Connect();
  ASSERT_TRUE(link->Receive(SubmitInterrupt(1) + SubmitRequest(2, kEnable)));
  EXPECT_EQ((Texts{"2: -71", "closed"}), Answers(2)) << "in the middle of a transfer";
  EXPECT_TRUE(link->HasEnded());
  EXPECT_FALSE(link->Receive(Submit(3, kGetDeviceStatus)));

  link.reset();
  notes.clear();
  world->Plug("hub");
  world->SleepMs(200);
  Connect();
  ASSERT_TRUE(link->Receive(SubmitRequest(4, kReset)));
  EXPECT_EQ(Texts{"4: 0"}, Answers(1));
  world->SleepMs(100);
  EXPECT_EQ((Texts{"4: 0", "closed"}), Answers(2)) << "by itself";

  link.reset();
  notes.clear();
  refusing = true;
  ASSERT_TRUE(Pause());
  Connect();
  ASSERT_TRUE(link->Receive(Submit(5, kGetDeviceStatus)));
  EXPECT_EQ("closed", Answers(2)[1]) << "when its answers do not get through";
}

}  // namespace

}  // namespace qzhub::test
