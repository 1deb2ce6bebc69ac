// The protocol with a guest: how a device is shown, what comes of each message, and what ends the
// connection. Everything is written as it travels, in hexadecimal.
#include "qzhub/redirect_link.h"

#include <map>

#include "link_bench.h"

namespace qzhub::test {

namespace {

using redirect::Type;
using virtualhub::Fault;

constexpr std::uint32_t kAll = 0xFF, kOldest = 0;  // capabilities of guests

/// A message with ids of 64 bits, or of 32.
Bytes Message(std::uint32_t type, std::uint64_t id, const Bytes& body = {}, bool isWide = true) {
  Bytes bytes;
  virtualhub::AppendLittleEndian(bytes, type);
  virtualhub::AppendLittleEndian(bytes, static_cast<std::uint32_t>(body.size()));
  virtualhub::AppendLittleEndian(bytes, id);
  bytes.resize(isWide ? 16 : 12);
  return bytes + body;
}
Bytes Greeting(std::uint32_t capabilities) {
  Bytes body(64, 'q');
  virtualhub::AppendLittleEndian(body, capabilities);
  return Message(0, 0, body, false);
}
Bytes Control(std::uint64_t id, const std::string& setup, const Bytes& data = {}) {
  const Bytes packet = Hex(setup);
  const Bytes head{static_cast<std::uint8_t>(packet[0] & 0x80), packet[1], packet[0], 0};
  return Message(100, id, head + Bytes(packet.begin() + 2, packet.end()) + data);
}
Bytes Request(std::uint64_t id, const std::string& request) {
  Bytes report = Hex(request);
  report.resize(320);
  return Control(id, "21 09 00 02 00 00 40 01", report);
}

class RedirectLinkTest : public LinkBench {
 protected:
  RedirectLinkTest() { Install(virtualhub::test::OneHub(R"("out_endpoint": "both")")); }
  ~RedirectLinkTest() override { link.reset(); }

  /// A guest that has said hello and knows the device; these notes are forgotten.
  void Connect(std::uint32_t capabilities = kAll) {
    Begin();
    ASSERT_TRUE(link->Receive(Greeting(capabilities)));
    link->Look();
    Forget();
  }
  void Begin() {
    link.reset();
    Forget();
    hasWideIds = false;
    link = std::make_unique<RedirectLink>(
        *machine, "hub",
        RedirectLink::Connection{.send = [this](ByteView bytes) { return Describe(bytes); },
                                 .wake = [this] { Note("wake"); },
                                 .remark = [this](const std::string& text) { Note(text); }});
  }
  /// Notes each message as "TYPE ID: BODY"; without the body if that is long.
  bool Describe(ByteView bytes) {
    while (!bytes.empty()) {
      const std::size_t header = hasWideIds ? 16 : 12,
                        size = header + virtualhub::LittleEndian32(bytes, 4);
      const std::uint32_t type = virtualhub::LittleEndian32(bytes, 0);
      const ByteView body = bytes.subspan(header, size - header);
      bodies[static_cast<Type>(type)] = Bytes(body.begin(), body.end());
      const std::string text = body.size() > 60 ? "" : ": " + HexText(body);
      std::uint64_t id = virtualhub::LittleEndian32(bytes, 8);
      if (hasWideIds) id |= std::uint64_t{virtualhub::LittleEndian32(bytes, 12)} << 32;
      if (!Note(std::to_string(type) + ' ' + std::to_string(id) + text)) return false;
      if (type == 0) hasWideIds = isWide;
      bytes = bytes.subspan(size);
    }
    return true;
  }

  bool isWide = true;       // both ends are able to use ids of 64 bits
  bool hasWideIds = false;  // after the hello
  std::map<Type, Bytes> bodies;
  std::unique_ptr<RedirectLink> link;
};

TEST_F(RedirectLinkTest, AGuestLearnsWhatTheDeviceIsOnceItHasSaidHello) {
  const std::tuple<std::uint32_t, std::string, std::size_t> rows[] = {
      {kAll, "1 0: 02 00 00 00 7C 2E 18 08 00 01", 160},
      {kOldest, "1 0: 02 00 00 00 7C 2E 18 08", 96}};
  for (const auto& [capabilities, connect, endpointsSize] : rows) {
    isWide = capabilities == kAll;
    Begin();
    link->Look();
    ExpectAnswers({"0 0"});
    ASSERT_TRUE(link->Receive(Greeting(capabilities)));
    link->Look();
    link->Look();
    ExpectAnswers({"0 0", "5 0", "4 0", connect});
    EXPECT_EQ(endpointsSize, bodies[Type::EndpointInfo].size());
  }
  EXPECT_EQ("7E 00 00 00", HexText(ByteView(bodies[Type::Hello]).subspan(64)));
  Bytes interfaces(132), types(32, 0xFF), intervals(32);
  interfaces[0] = 1;
  interfaces[4 + 32] = 3;
  types[0] = types[16] = 0;
  types[1] = types[17] = 3;
  intervals[1] = intervals[17] = 4;
  EXPECT_EQ(interfaces, bodies[Type::InterfaceInfo]);
  EXPECT_EQ(types + intervals + Bytes(32), bodies[Type::EndpointInfo]);
  isWide = true;
  Connect();
  Bytes sizes(64);
  sizes[0] = sizes[2] = sizes[32] = sizes[34] = 64;
  EXPECT_EQ(types + intervals + Bytes(32) + sizes, bodies[Type::EndpointInfo]);
}

TEST_F(RedirectLinkTest, EveryTransferIsAnsweredInOrder) {
  Connect();
  machine->AddFault({.on = Fault::On::Output, .nth = 2, .code = 13});
  Bytes report = Hex(kEnable), saysIn = Control(8, "00 00 00 00 00 00 02 00");
  report.resize(320);
  saysIn[16] = 0x80;
  const Bytes all = Control(1, kGetStatus) + Request(2, kEnable) + Request(3, kEnable) +
                    Control(4, "C0 01 00 00 00 00 01 00") + Message(7, 5) + Message(6, 6, {0}) +
                    Message(7, 7) + saysIn + Message(6, 9, {1}) + Message(6, 10, {2}) +
                    Message(10, 11, {0}) + Message(9, 12, {0, 0}) + Message(9, 13, {0, 1}) +
                    Message(23, 0, {0}) + Message(102, 14, Hex("02 00 01 00 55")) +
                    Message(101, 15, Hex("82 00 40 00 00 00 00 00 01 00")) +
                    Message(103, 16, Hex("02 00 01 00 55")) +
                    Message(103, 0x100000011, Hex("01 00 40 01") + report) + Control(18, kHalt) +
                    Message(3, 0) + Message(3, 0) + Control(19, "82 00 00 00 81 00 02 00");
  for (const std::uint8_t byte : all) ASSERT_TRUE(link->Receive({&byte, 1}));
  ExpectAnswers({"100 1: 80 00 80 00 00 00 00 00 02 00 01 00",
                 "100 2: 00 09 21 00 00 02 00 00 40 01",
                 "100 3: 00 09 21 03 00 02 00 00 00 00",
                 "100 4: 80 01 C0 04 00 00 00 00 00 00",
                 "8 5: 00 01",
                 "5 0",
                 "4 0",
                 "8 6: 00 00",
                 "8 7: 00 00",
                 "100 8: 80 00 00 04 00 00 00 00 00 00",
                 "5 0",
                 "4 0",
                 "8 9: 00 01",
                 "8 10: 04 02",
                 "11 11: 00 00 00",
                 "5 0",
                 "4 0",
                 "11 12: 00 00 00",
                 "11 13: 04 00 01",
                 "101 15: 82 04 00 00 00 00 00 00 00 00",
                 "103 16: 02 04 00 00",
                 "103 4294967313: 01 00 40 01",
                 "100 18: 00 03 02 00 00 00 81 00 00 00",
                 "100 19: 80 00 82 00 00 00 81 00 02 00 00 00"});
}

TEST_F(RedirectLinkTest, ReadingInterruptsEndsWhenTheEndpointHalts) {
  Connect();
  ASSERT_TRUE(link->Receive(Message(15, 1, {0x81}) + Message(15, 2, {0x81}) +
                            Message(16, 3, {0x81}) + Message(15, 4, {0x82}) +
                            Message(16, 5, {0x01}) + Message(12, 6, {0x82, 1, 1}) +
                            Message(13, 7, {0x83})));
  Texts answers = {"17 1: 00 81", "17 2: 00 81", "17 3: 00 81", "17 4: 02 82",
                   "17 5: 02 01", "14 6: 02 82", "14 7: 02 83"};
  const auto expect = [&](const Bytes& message, const Texts& more) {
    ASSERT_TRUE(link->Receive(message));
    answers.insert(answers.end(), more.begin(), more.end());
    ExpectAnswers(answers);
  };
  expect(Control(8, kHalt), {"100 8: 00 03 02 00 00 00 81 00 00 00"});  // nothing was being read
  expect(Message(15, 9, {0x81}), {"17 9: 00 81", "17 0: 04 81"});
  expect(Message(3, 0) + Message(15, 10, {0x81}), {"17 10: 00 81"});
  expect(Control(11, kHalt), {"100 11: 00 03 02 00 00 00 81 00 00 00", "17 0: 04 81"});
}

TEST_F(RedirectLinkTest, WhatIsCancelledIsAnsweredOnce) {
  Connect();
  Gate gate(*machine);
  ASSERT_TRUE(link->Receive(Control(1, kGetStatus)));
  const std::string status = "100 1: 80 00 80 00 00 00 00 00 02 00 01 00";
  ExpectAnswers({status});
  ASSERT_TRUE(link->Receive(Request(2, kEnable) + Request(3, kEnable)));
  gate.WaitUntilReached();
  for (std::uint64_t id = 1; id <= 4; ++id) ASSERT_TRUE(link->Receive(Message(21, id)));
  gate.Open();
  ASSERT_TRUE(link->Receive(Control(2, kGetStatus)));
  ExpectAnswers({status, "100 2: 00 09 21 01 00 02 00 00 00 00",
                 "100 3: 00 09 21 01 00 02 00 00 00 00",
                 "100 2: 80 00 80 00 00 00 00 00 02 00 01 00"});
  EXPECT_EQ(1u, machine->exchanges()) << "3 did not reach the hub";
}

TEST_F(RedirectLinkTest, WhatIsNoMessageEndsTheConnection) {
  const std::pair<const char*, Bytes> rows[] = {
      {"a second hello", Greeting(kAll)},
      {"an answer", Message(8, 1, {0, 0})},
      {"a type without meaning", Message(99, 1)},
      {"streams, which were not agreed on", Message(18, 1, Bytes(8))},
      {"a reset with a body", Message(3, 1, {0})},
      {"half a setting", Message(9, 1, {0})},
      {"half a control packet", Message(100, 2, Bytes(9))},
      {"4 GiB", Hex("64 00 00 00 FF FF FF FF 00 00 00 00 00 00 00 00")},
      {"too much data", Message(103, 2, Hex("01 00 02 00 55 55 55"))},
      {"too little data", Message(100, 2, Hex("00 09 21 00 00 02 00 00 02 00 55"))},
      {"data to be read", Message(100, 2, Hex("80 00 80 00 00 00 00 00 01 00 55"))},
      {"an interrupt of the guest", Message(103, 2, Hex("81 00 00 00"))},
      {"a bulk packet without the rest of its length",
       Message(101, 2, Hex("02 00 00 00 00 00 00 00"))},
      {"a bulk packet of 64 KiB and a byte",
       Message(101, 2, Hex("02 00 01 00 00 00 00 00 01 00 55"))},
      {"a filter without end", Message(23, 2, Bytes(4097))}};
  for (const auto& [what, bytes] : rows) {
    Connect();
    EXPECT_FALSE(link->Receive(bytes)) << what;
  }
  for (const Bytes& first : {Message(3, 0), Message(0, 0, Bytes(63), false),
                             Message(0, 0, Bytes(321), false), Bytes(12, 'G')}) {
    Begin();
    EXPECT_FALSE(link->Receive(first)) << HexText(first);
  }
}

TEST_F(RedirectLinkTest, TooManyTransfersFailAndTwoOfOneIdEndTheConnection) {
  Gate gate(*machine);
  Connect();
  ASSERT_TRUE(link->Receive(Request(1, kEnable)));
  gate.WaitUntilReached();
  for (std::uint64_t id = 2; id <= 66; ++id) ASSERT_TRUE(link->Receive(Request(id, kEnable)));
  ExpectAnswers({"100 66: 00 09 21 03 00 02 00 00 00 00"});
  EXPECT_FALSE(link->Receive(Control(1, kGetStatus)));
  gate.Open();
}

TEST_F(RedirectLinkTest, AGuestSeesTheDeviceLeaveAndReturn) {
  const std::string connect = "1 0: 02 00 00 00 7C 2E 18 08 00 01";
  machine->AddFault({.on = Fault::On::Output, .action = Fault::Action::Unplug, .returnMs = 10});
  Connect();
  ASSERT_TRUE(link->Receive(Request(1, kEnable)));
  Texts notes = {"100 1: 00 09 21 03 00 02 00 00 00 00", "wake"};
  ExpectAnswers(notes);  // in the middle of a transfer
  link->Look();
  const Bytes late = Control(2, kGetStatus) + Message(21, 2) + Message(3, 0) +
                     Message(15, 3, {0x81}) + Message(6, 4, {1});
  ASSERT_TRUE(link->Receive(late));
  ASSERT_TRUE(Pause());
  link->Look();
  notes.emplace_back("2 0: ");
  ExpectAnswers(notes);
  EXPECT_TRUE(link->AwaitsDevice());
  ASSERT_TRUE(link->Receive(late + Message(24, 0)));  // it has seen that
  link->Look();
  notes.insert(notes.end(), {"5 0", "4 0", connect});
  ExpectAnswers(notes);
  EXPECT_FALSE(link->AwaitsDevice());
  ASSERT_TRUE(link->Receive(Message(22, 0)));
  notes.emplace_back(
      "the guest rejects hub: its filter forbids the device, or its controller has no high speed");
  ExpectAnswers(notes);

  isWide = false;
  Connect(kOldest);  // a guest that does not say what it has seen
  machine->Unplug("hub", 10);
  ExpectAnswers({"wake"});
  link->Look();
  ASSERT_TRUE(Pause());
  link->Look();
  ExpectAnswers({"wake", "2 0: ", "5 0", "4 0", "1 0: 02 00 00 00 7C 2E 18 08"});
}

}  // namespace

}  // namespace qzhub::test
