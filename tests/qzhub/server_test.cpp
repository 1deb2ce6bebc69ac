// The server over loopback: listing, importing, bad clients, and devices that leave.
#include "qzhub/server.h"

#include <sys/socket.h>

#include <array>
#include <condition_variable>

#include "qzhub/socket.h"
#include "usbip_client.h"

namespace qzhub::test {

namespace {

const std::string kAbsent = "00 00 00 04", kBusy = "00 00 00 02", kImportReply = "01 11 00 03 ";

class Client {
 public:
  explicit Client(const SocketAddress& server) : socket_(socket(AF_INET, SOCK_STREAM, 0)) {
    EXPECT_EQ(
        0, connect(socket_.get(), reinterpret_cast<const sockaddr*>(&server.storage), server.size));
  }

  void Send(const Bytes& bytes) {
    EXPECT_TRUE(SendAll(socket_.get(), bytes, std::chrono::steady_clock::now()));
  }
  void EndSending() { shutdown(socket_.get(), SHUT_WR); }
  Bytes Take(std::size_t size) {
    Bytes bytes(size);
    const ssize_t count = recv(socket_.get(), bytes.data(), size, MSG_WAITALL);
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return bytes;
  }
  /// All bytes up to the end of the connection.
  Bytes TakeAll() {
    Bytes all;
    for (Bytes more; !(more = Take(1)).empty();) all.push_back(more[0]);
    return all;
  }
  /// "imported" or the status of the refusal.
  std::string Import(const std::string& busid) {
    Send(ImportRequest(busid));
    const Bytes reply = Take(8);
    EXPECT_EQ(kImportReply, Hex(reply).substr(0, kImportReply.size()));
    std::string status = Hex(ByteView(reply).last(4));
    if (status != "00 00 00 00") return status;
    device = Take(312);
    return "imported";
  }
  /// The answer to a command, with that many bytes of data.
  std::string Ask(const Bytes& command, std::size_t data = 0) {
    Send(command);
    return Describe(Take(kCommandSize + data));
  }

  Bytes device;  ///< what the import said of it

 private:
  FileDescriptor socket_;
};

class ServerTest : public virtualhub::test::HubBench {
 protected:
  ServerTest() {
    const virtualhub::Scenario scenario = virtualhub::ReadScenario(R"({"devices": [
        {"name": "hub", "port": "3.1", "rom": {"vid": "0x1111", "pid": 2}},
        {"name": "second", "port": "4", "image": {"pid": 3}},
        {"name": "absent", "port": "5", "plugged": false}]})");
    world = &virtualhub::InstallWorld(scenario);
    server = std::make_unique<Server>(*world, ExportsOf(scenario), stop, log);
    thread = std::thread([this] { server->Run(listener.get()); });
  }
  ~ServerTest() override { Stop(); }
  void Stop() {
    stop.Request();
    if (thread.joinable()) thread.join();
  }
  Client Connect() { return Client(LocalAddress(listener.get())); }
  /// Imports a device whose last client has gone, once the server has noticed.
  std::unique_ptr<Client> ImportAgain(const std::string& busid) {
    std::unique_ptr<Client> client;
    std::string outcome = kBusy;
    while (outcome == kBusy) {
      client = std::make_unique<Client>(LocalAddress(listener.get()));
      outcome = client->Import(busid);
    }
    EXPECT_EQ("imported", outcome);
    return client;
  }
  Bytes List() {
    Client client = Connect();
    client.Send(FromHex(kList));
    return client.TakeAll();
  }

  StopEvent stop;
  EventLog log;
  FileDescriptor listener = Listen(*SocketAddress::Parse("127.0.0.1:0"));
  std::unique_ptr<Server> server;
  std::thread thread;
};

TEST_F(ServerTest, ListsWhatIsOnTheBus) {
  const Bytes list = List();
  ASSERT_EQ(12u + 2 * 316, list.size());
  EXPECT_EQ("01 11 00 05 00 00 00 00 00 00 00 02", Hex(ByteView(list).first(12)));
  const ByteView second = ByteView(list).last(316);
  EXPECT_STREQ("/virtual/second", reinterpret_cast<const char*>(second.data()));
  EXPECT_STREQ("1-2", reinterpret_cast<const char*>(second.data() + 256));
  EXPECT_EQ("00 00 00 01 00 00 00 02 00 00 00 03 2E 7C 00 03 01 00 00 00 00 01 01 01 03 00 00 00",
            Hex(second.last(28)));
  Client client = Connect();
  ASSERT_EQ("imported", client.Import("1-2"));
  EXPECT_EQ(Hex(second.first(312)), Hex(client.device));
}

TEST_F(ServerTest, ADeviceIsImportedByOneAtATime) {
  for (const char* busid : {"1-3", "1-4", "", "hub", "a name that is longer than its field"}) {
    EXPECT_EQ(kAbsent, Connect().Import(std::string(busid).substr(0, kBusidSize))) << busid;
  }
  {
    Client first = Connect(), second = Connect();
    ASSERT_EQ("imported", first.Import("1-1"));
    EXPECT_EQ(kBusy, Connect().Import("1-1"));
    ASSERT_EQ("imported", second.Import("1-2"));
    EXPECT_EQ("7: 0 01 00", second.Ask(Submit(7, kGetDeviceStatus, {}, 0x10002), 2));
    EXPECT_EQ("7: 0 01 00", first.Ask(Submit(7, kGetDeviceStatus), 2));
  }
  ImportAgain("1-1");
}

TEST_F(ServerTest, BadClientsAreLeftAlone) {
  Client good = Connect();
  ASSERT_EQ("imported", good.Import("1-2"));
  const std::pair<const char*, Bytes> requests[] = {
      {"nothing", {}},
      {"half a header", FromHex("01 11 80")},
      {"another version", FromHex("01 06 80 05 00 00 00 00")},
      {"another code", FromHex("01 11 80 07 00 00 00 00")},
      {"half an import", FromHex(kImport) + Bytes(31, 'x')},
      {"a web browser", Bytes(300, 'G')}};
  for (const auto& [what, bytes] : requests) {
    Client bad = Connect();
    bad.Send(bytes);
    bad.EndSending();
    EXPECT_EQ("", Hex(bad.TakeAll())) << what;
  }
  const std::pair<const char*, Bytes> commands[] = {
      {"half a command", Bytes(47)},
      {"half a report", Submit(1, kSetReport, Bytes(319))},
      {"no command", Bytes(48, 0xFF)},
      {"another's device", Submit(1, kGetDeviceStatus, {}, 0x10002)}};
  for (const auto& [what, bytes] : commands) {
    const std::unique_ptr<Client> bad = ImportAgain("1-1");
    bad->Send(bytes);
    bad->EndSending();
    EXPECT_EQ("", Hex(bad->TakeAll())) << what;
  }
  EXPECT_EQ("8: 0 01 00", good.Ask(Submit(8, kGetDeviceStatus, {}, 0x10002), 2));
}

TEST_F(ServerTest, ClientsAreBounded) {
  std::list<Client> idle;
  for (int i = 0; i < 32; ++i) idle.push_back(Connect());
  EXPECT_EQ("", Hex(List()));
  idle.clear();
  while (List().empty()) {
  }
}

TEST_F(ServerTest, AClientThatVanishesLeavesTheOthersAlone) {
  Client other = Connect();
  ASSERT_EQ("imported", other.Import("1-2"));
  std::mutex mutex;
  std::condition_variable changed;
  bool started = false, released = false;
  world->SetExchangeHook([&](const virtualhub::Exchange&) {
    std::unique_lock<std::mutex> lock(mutex);
    started = true;
    changed.notify_all();
    changed.wait(lock, [&] { return released; });
  });
  {
    Client vanishing = Connect();
    ASSERT_EQ("imported", vanishing.Import("1-1"));
    vanishing.Send(SubmitRequest(1, "40 02 01 00 7C 2E"));
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [&] { return started; });
  }
  EXPECT_EQ("5: 0 01 00", other.Ask(Submit(5, kGetDeviceStatus, {}, 0x10002), 2));
  EXPECT_EQ(kBusy, Connect().Import("1-1")) << "while its last transfer is under way";
  {
    const std::lock_guard<std::mutex> guard(mutex);
    released = true;
  }
  changed.notify_all();
  ImportAgain("1-1");
  world->SetExchangeHook({});
}

TEST_F(ServerTest, AFirmwareResetEndsTheImport) {
  Client client = Connect();
  ASSERT_EQ("imported", client.Import("1-1"));
  EXPECT_EQ("1: 0", client.Ask(SubmitRequest(1, "40 00")));
  world->SleepMs(100);
  EXPECT_EQ("", Hex(client.TakeAll()));
  EXPECT_EQ(kAbsent, Connect().Import("1-1"));
  EXPECT_EQ(12u + 316, List().size());
  ASSERT_TRUE(Pause());
  EXPECT_EQ("11 11 00 02", Hex(ByteView(ImportAgain("1-1")->device).subspan(300, 4)))
      << "it runs ROM code";
}

TEST_F(ServerTest, StopsWithClientsConnected) {
  Client idle = Connect(), busy = Connect();
  ASSERT_EQ("imported", busy.Import("1-1"));
  Stop();
  EXPECT_EQ("", Hex(idle.TakeAll()) + Hex(busy.TakeAll()));
}

TEST(SocketTest, AddressesAreNumbers) {
  for (const char* good : {"127.0.0.1:3240", "0.0.0.0:1", "[::1]:3240", "[::]:65535"}) {
    const auto address = SocketAddress::Parse(good);
    ASSERT_TRUE(address) << good;
    EXPECT_EQ(good, address->Text());
  }
  for (const char* bad : {"", ":", "3240", "127.0.0.1", "127.0.0.1:", ":3240", "::1:3240", "[::1]",
                          "localhost:3240", "127.0.0.1:65536", "127.0.0.1:-1", "127.0.0.1:32x",
                          "[127.0.0.1]:3240", "1.2.3.4:99999999999999999999"}) {
    EXPECT_FALSE(SocketAddress::Parse(bad)) << bad;
  }
}

TEST(SocketTest, NothingIsWaitedForBehindTheDeadline) {
  int ends[2];
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
  const FileDescriptor left(ends[0]), right(ends[1]);
  const StopEvent stop;
  const auto now = std::chrono::steady_clock::now();
  Bytes half(4), buffer(8);
  ASSERT_TRUE(SendAll(left.get(), half, now));
  EXPECT_FALSE(ReceiveAll(right.get(), buffer, now, stop)) << "half a message";
  EXPECT_FALSE(SendAll(left.get(), Bytes(10'000'000), now)) << "nobody reads";
}

}  // namespace

}  // namespace qzhub::test
