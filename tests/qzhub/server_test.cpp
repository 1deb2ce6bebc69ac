// The server over loopback: listing, importing, bad clients, and devices that leave.
#include "qzhub/server.h"

#include <thread>

#include "qzhub/socket.h"
#include "usbip_client.h"

namespace qzhub::test {

const std::string kAbsent = "01 11 00 03 00 00 00 04", kBusy = "01 11 00 03 00 00 00 02";
const std::string kImported = "01 11 00 03 00 00 00 00";

class Client {
 public:
  explicit Client(const SocketAddress& server) : socket_(socket(AF_INET, SOCK_STREAM, 0)) {
    const auto* address = reinterpret_cast<const sockaddr*>(&server.storage);
    EXPECT_EQ(0, connect(socket_.get(), address, server.size));
  }

  void Send(const Bytes& bytes) {
    EXPECT_TRUE(SendAll(socket_.get(), bytes, std::chrono::steady_clock::now()));
  }
  void EndSending() { shutdown(socket_.get(), SHUT_WR); }
  /// So many bytes, or those up to the end of the connection.
  Bytes Take(std::size_t size = 20000) {
    Bytes bytes(size);
    const ssize_t count = recv(socket_.get(), bytes.data(), size, MSG_WAITALL);
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return bytes;
  }
  /// The head of the reply.
  std::string Import(const std::string& busid) {
    Bytes field(busid.begin(), busid.end());
    field.resize(kBusidSize);
    Send(Hex("01 11 80 03 00 00 00 00") + field);
    std::string head = HexText(Take(8));
    if (head == kImported) device = Take(312);
    return head;
  }
  /// Whether the device still answers.
  bool IsServed(std::uint32_t devid = kDevid) {
    Send(Submit(7, kGetStatus, {}, devid));
    return Describe(Take(kCommandSize + 2)) == "7: 0 01 00";
  }

  Bytes device;  ///< what the import said about it

 private:
  tools::Descriptor socket_;
};

class ServerTest : public virtualhub::test::HubBench {
 protected:
  ServerTest() {
    const virtualhub::Scenario scenario = virtualhub::ReadScenario(R"({"devices": [
        {"name": "hub", "port": "3.1", "rom": {"vid": "0x1111", "pid": 2}},
        {"name": "second", "port": "4", "image": {"pid": 3}},
        {"name": "absent", "port": "5", "plugged": false}]})");
    machine = &virtualhub::InstallMachine(scenario);
    offer = std::make_unique<Offer>(*machine, ExportsOf(scenario), log);
    server = std::make_unique<Server>(stop, log);
    thread = std::thread([this] { server->Run({UsbipEntrance(listener.get(), *offer)}); });
  }
  ~ServerTest() override { Stop(); }
  void Stop() {
    stop.Request();
    if (thread.joinable()) thread.join();
  }
  Client Connect() { return Client(LocalAddress(listener.get())); }
  /// Imports a device, once the server has noticed that its last client has gone.
  Client Import(const std::string& busid) {
    for (;;) {
      Client client = Connect();
      const std::string head = client.Import(busid);
      if (head == kBusy) continue;
      EXPECT_EQ(kImported, head);
      return client;
    }
  }
  Bytes List() {
    Client client = Connect();
    client.Send(Hex("01 11 80 05 00 00 00 00"));
    return client.Take();
  }

  StopEvent stop;
  EventLog log;
  tools::Descriptor listener = Listen(*SocketAddress::Parse("127.0.0.1:0"));
  std::unique_ptr<Offer> offer;
  std::unique_ptr<Server> server;
  std::thread thread;
};

TEST_F(ServerTest, ListsWhatIsOnTheBus) {
  const Bytes list = List();
  ASSERT_EQ(12u + 2 * 316, list.size());
  EXPECT_EQ("01 11 00 05 00 00 00 00 00 00 00 02", HexText(ByteView(list).first(12)));
  const ByteView second = ByteView(list).last(316);
  EXPECT_STREQ("/virtual/second", reinterpret_cast<const char*>(second.data()));
  EXPECT_STREQ("1-2", reinterpret_cast<const char*>(second.data() + 256));
  EXPECT_EQ("00 00 00 01 00 00 00 02 00 00 00 03 2E 7C 00 03 01 00 00 00 00 01 01 01 03 00 00 00",
            HexText(second.last(28)));
  EXPECT_EQ(HexText(second.first(312)), HexText(Import("1-2").device));
}

TEST_F(ServerTest, ADeviceIsImportedByOneAtATime) {
  for (const char* busid : {"1-3", "1-4", "", "hub", "no zero ends this text in a field"}) {
    EXPECT_EQ(kAbsent, Connect().Import(std::string(busid).substr(0, kBusidSize))) << busid;
  }
  Client second = Import("1-2"), idle = Connect();
  Gate gate(*machine);
  {
    Client first = Import("1-1");
    EXPECT_EQ(kBusy, Connect().Import("1-1"));
    EXPECT_TRUE(first.IsServed());
    first.Send(SubmitRequest(1, kEnable));
    gate.WaitUntilReached();
  }
  EXPECT_TRUE(second.IsServed(0x10002)) << "after another client has vanished";
  EXPECT_EQ(kBusy, Connect().Import("1-1")) << "while its last transfer is under way";
  gate.Open();
  Import("1-1");
  Stop();
  EXPECT_EQ(Bytes(), idle.Take()) << "it ends with the server";
  EXPECT_EQ(Bytes(), second.Take());
}

TEST_F(ServerTest, ABadClientHarmsNoOther) {
  Client good = Import("1-2");
  const auto expectEnd = [](Client bad, const Bytes& bytes, const char* what) {
    bad.Send(bytes);
    bad.EndSending();
    EXPECT_EQ(Bytes(), bad.Take()) << what;
  };
  expectEnd(Connect(), {}, "nothing");
  expectEnd(Connect(), Hex("01 11 80"), "half a header");
  expectEnd(Connect(), Hex("01 06 80 05 00 00 00 00"), "another version");
  expectEnd(Connect(), Hex("01 11 80 07 00 00 00 00"), "another code");
  expectEnd(Connect(), Hex("01 11 80 03 00 00 00 00") + Bytes(31, 'x'), "half an import");
  expectEnd(Connect(), Bytes(300, 'G'), "a web browser");
  expectEnd(Import("1-1"), Bytes(47), "half a command");
  expectEnd(Import("1-1"), Bytes(48, 0xFF), "no command");

  std::vector<Client> idle;
  do {
    idle.push_back(Connect());
  } while (!List().empty());
  EXPECT_GE(idle.size(), 16u) << "there is room for many";
  EXPECT_TRUE(good.IsServed(0x10002));
  idle.clear();
  while (List().empty()) {
  }
}

TEST_F(ServerTest, AFirmwareResetEndsTheImport) {
  Client client = Import("1-1");
  client.Send(SubmitRequest(1, kReset));
  EXPECT_EQ("1: 0", Describe(client.Take(kCommandSize)));
  machine->SleepMs(100);
  EXPECT_EQ(Bytes(), client.Take());
  EXPECT_EQ(kAbsent, Connect().Import("1-1"));
  EXPECT_EQ(12u + 316, List().size());
  ASSERT_TRUE(Pause());
  const Bytes device = Import("1-1").device;
  EXPECT_EQ("11 11 00 02", HexText(ByteView(device).subspan(300, 4))) << "it runs ROM code";
}

TEST(SocketTest, AddressesAreNumbers) {
  for (const char* good : {"127.0.0.1:3240", "0.0.0.0:1", "[::1]:3240", "[::]:65535"}) {
    const auto address = SocketAddress::Parse(good);
    EXPECT_EQ(good, address ? address->Text() : "");
  }
  for (const char* bad : {"", ":", "3240", "127.0.0.1", "127.0.0.1:", ":3240", "::1:3240", "[::1]",
                          "localhost:3240", "127.0.0.1:65536", "127.0.0.1:-1", "127.0.0.1:32x",
                          "[127.0.0.1]:3240", "1.2.3.4:99999999999999999999"}) {
    EXPECT_FALSE(SocketAddress::Parse(bad)) << bad;
  }
}

TEST(SocketTest, AnAddressHasOthersAfterIt) {
  const auto following = [](const char* text, std::size_t ports) {
    const auto address = SocketAddress::Parse(text)->Following(ports);
    return address ? address->Text() : "none";
  };
  EXPECT_EQ("127.0.0.1:4001", following("127.0.0.1:4000", 1));
  EXPECT_EQ("[::1]:65535", following("[::1]:65000", 535));
  EXPECT_EQ("none", following("[::1]:65000", 536));
  EXPECT_EQ("127.0.0.1:0", following("127.0.0.1:0", 3)) << "any that is free";
}

TEST(SocketTest, NothingIsWaitedForAfterTheDeadline) {
  int ends[2];
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
  const tools::Descriptor left(ends[0]), right(ends[1]);
  const auto now = std::chrono::steady_clock::now();
  EXPECT_FALSE(SendAll(left.get(), Bytes(10'000'000), now)) << "nobody reads";
}

}  // namespace qzhub::test
