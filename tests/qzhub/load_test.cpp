// The server with as many hubs and clients as it serves, and with clients that cost it time.
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/mman.h>

#include <deque>

#include "qzhub/server.h"
#include "usbip_client.h"

namespace qzhub::test {

namespace {

using namespace std::chrono_literals;
using ::testing::AllOf;
using ::testing::HasSubstr;

/// A client of the server that never waits unless it reads.
class Peer {
 public:
  explicit Peer(const SocketAddress& server)
      : socket_(socket(server.storage.ss_family, SOCK_STREAM, 0)) {
    const auto* address = reinterpret_cast<const sockaddr*>(&server.storage);
    EXPECT_EQ(0, connect(socket_.get(), address, server.size));
  }

  Peer& Send(const Bytes& bytes) {
    EXPECT_EQ(bytes.size(), SendNow(socket_.get(), bytes));
    return *this;
  }
  /// Sends commands for that hub until the server takes no more, and does not read the answers.
  void Flood(std::uint32_t hub) {
    const Bytes command = Words({2, 7, 0x10000 + hub, 0, 0, 8, 0, 0, 0, 0, 0, 0});
    Bytes commands;
    for (int i = 0; i < 100'000; ++i) {
      commands.insert(commands.end(), command.begin(), command.end());
    }
    ByteView rest = commands;
    pollfd awaited{socket_.get(), POLLOUT, 0};
    std::optional<std::size_t> sent = 0;
    while (sent && poll(&awaited, 1, 100) == 1) {
      rest = rest.subspan(*sent);
      sent = SendNow(socket_.get(), rest);
    }
    EXPECT_FALSE(rest.empty());
  }
  /// So many bytes, or those up to the end of the connection.
  Bytes Take(std::size_t size = 1u << 24) {
    Bytes bytes(size);
    const ssize_t count = recv(socket_.get(), bytes.data(), size, MSG_WAITALL);
    bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return bytes;
  }
  /// How many bytes come in one piece.
  std::size_t TakePiece() {
    Bytes bytes(1u << 16);
    return static_cast<std::size_t>(recv(socket_.get(), bytes.data(), bytes.size(), 0));
  }
  /// Whether the server gives it the hub of that number.
  bool Import(std::uint32_t hub) {
    const std::string busid = "1-" + std::to_string(hub);
    Bytes request = Words({0x01118003, 0}) + Bytes(busid.begin(), busid.end());
    request.resize(kOpHeaderSize + kBusidSize);
    return Send(request).Take(320).size() == 320;
  }
  std::string GetStatus(std::uint32_t hub) {
    Send(Submit(7, kGetStatus, {}, 0x10000 + hub));
    return Describe(Take(kCommandSize + 2));
  }

 private:
  tools::Descriptor socket_;
};

class LoadTest : public virtualhub::test::HubBench {
 protected:
  ~LoadTest() override { Stop(); }

  void Start(std::uint32_t count, std::chrono::milliseconds patience = 1h) {
    std::string hubs;
    for (std::uint32_t i = 1; i <= count; ++i) {
      const std::string port = std::to_string(i / 64 + 1) + "." + std::to_string(i % 64 + 1);
      hubs += std::string(i == 1 ? "" : ", ") + R"({"name": "hub)" + std::to_string(i) +
              R"(", "port": ")" + port + "\"}";
    }
    const auto scenario = virtualhub::ReadScenario(R"({"devices": [)" + hubs + "]}");
    machine = &virtualhub::InstallMachine(scenario);
    const int size = 16384;  // of what the system keeps for a client that does not read
    setsockopt(listener.get(), SOL_SOCKET, SO_SNDBUF, &size, sizeof(size));
    setsockopt(listener.get(), SOL_SOCKET, SO_RCVBUF, &size, sizeof(size));
    offer = std::make_unique<Offer>(*machine, ExportsOf(scenario), log);
    server = std::make_unique<Server>(stop, log, patience);
    ended = std::async(std::launch::async,
                       [this] { return server->Run({UsbipEntrance(listener.get(), *offer)}); });
  }
  void Stop() {
    stop.Request();
    if (ended.valid()) ended.get();
    server.reset();
  }
  Peer Connect() { return Peer(LocalAddress(listener.get())); }
  /// How many bytes a list of the devices has.
  std::size_t ListSize() { return Connect().Send(Words({0x01118005, 0})).Take().size(); }
  std::string Remarks() {
    log.End();
    std::string text(1u << 16, 0);
    text.resize(static_cast<std::size_t>(pread(remarks.get(), text.data(), text.size(), 0)));
    return text;
  }

  StopEvent stop;
  const tools::Descriptor events{memfd_create("events", MFD_CLOEXEC)};
  const tools::Descriptor remarks{memfd_create("remarks", MFD_CLOEXEC)};
  EventLog log{events.get(), remarks.get()};
  const tools::Descriptor listener = Listen(*SocketAddress::Parse("127.0.0.1:0"));
  std::unique_ptr<Offer> offer;
  std::unique_ptr<Server> server;
  std::future<bool> ended;
};

TEST_F(LoadTest, ServesAHubToEachOf128Clients) {
  constexpr std::uint32_t kHubs = 128;
  Start(kHubs);
  std::deque<Peer> peers;
  for (std::uint32_t hub = 1; hub <= kHubs; ++hub) {
    EXPECT_TRUE(peers.emplace_back(Connect()).Import(hub)) << hub;
  }
  for (std::uint32_t hub = 1; hub <= kHubs; ++hub) {
    EXPECT_EQ("7: 0 01 00", peers[hub - 1].GetStatus(hub)) << hub;
  }
  EXPECT_EQ(12u + kHubs * 316, ListSize());
}

TEST_F(LoadTest, AClientBeyondTheLimitIsRefusedAtOnce) {
  Start(1);
  std::deque<Peer> peers;
  while (peers.size() < Server::kMostClients - 1) peers.push_back(Connect());
  EXPECT_EQ(12u + 316, ListSize()) << "the last one that is served";
  EXPECT_TRUE(peers.emplace_back(Connect()).Import(1));
  EXPECT_EQ(0u, Connect().Take().size());
  EXPECT_EQ("7: 0 01 00", peers.back().GetStatus(1));
  EXPECT_THAT(Remarks(), HasSubstr(": 256 clients are connected already\n"));
}

TEST_F(LoadTest, ClientsThatAreSlowCostTheOthersNothing) {
  Start(5);
  std::deque<Peer> slow;
  for (int i = 0; i < 60; ++i) {
    slow.push_back(Connect());
    slow.emplace_back(Connect()).Send(Words({0x01118003}));
    slow.emplace_back(Connect()).Send(Words({0x01118003, 0, 0}));
    Connect().Send(Bytes(300, 'G'));
  }
  for (std::uint32_t hub = 2; hub < 6; ++hub) {
    ASSERT_TRUE(slow.emplace_back(Connect()).Import(hub));
    slow.back().Flood(hub);
  }
  EXPECT_EQ(12u + 5 * 316, ListSize());
  Peer quick = Connect();
  EXPECT_TRUE(quick.Import(1));
  EXPECT_EQ("7: 0 01 00", quick.GetStatus(1));
}

TEST_F(LoadTest, TheAnswersToOnePieceAreOnePiece) {
  Start(1);
  Peer peer = Connect();
  ASSERT_TRUE(peer.Import(1));
  Bytes commands;
  for (std::uint32_t i = 1; i <= 20; ++i) commands = commands + UnlinkCommand(i, 100);
  EXPECT_EQ(20 * kCommandSize, peer.Send(commands).TakePiece());
}

TEST_F(LoadTest, OnlyClientsThatHaveADeviceMayBeIdle) {
  Start(2, 500ms);
  Peer idle = Connect(), silent = Connect(), deaf = Connect();
  ASSERT_TRUE(idle.Import(1));
  ASSERT_TRUE(deaf.Import(2));
  EXPECT_EQ(0u, silent.Take().size());
  deaf.Flood(2);
  while (!Connect().Import(2)) {
  }
  EXPECT_EQ("7: 0 01 00", idle.GetStatus(1));
  EXPECT_THAT(Remarks(),
              AllOf(HasSubstr(": no request in time\n"), HasSubstr(": takes no answers\n")));
}

TEST_F(LoadTest, TheEndDoesNotWaitForATransfer) {
  Start(1);
  Gate gate(*machine);
  Peer peer = Connect();
  ASSERT_TRUE(peer.Import(1));
  peer.Send(SubmitRequest(1, kEnable));
  gate.WaitUntilReached();
  stop.Request();
  EXPECT_FALSE(ended.get());
  gate.Open();
}

}  // namespace

}  // namespace qzhub::test
