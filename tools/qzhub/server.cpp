#include "qzhub/server.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "qzhub/link_socket.h"
#include "qzhub/socket.h"

namespace qzhub {

namespace {

constexpr std::size_t kMostClients = 32;
constexpr auto kRequestTime = std::chrono::seconds(5);
constexpr auto kAcceptPause = std::chrono::milliseconds(100);

void SetOption(int socket, int level, int option, int value) {
  // These are improvements only; a socket without them works, too.
  setsockopt(socket, level, option, &value, sizeof(value));
}

// Answers go out at once, and a client that vanishes without a word is noticed in a minute.
void Tune(int socket) {
  SetOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
  SetOption(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
  SetOption(socket, IPPROTO_TCP, TCP_KEEPIDLE, 30);
  SetOption(socket, IPPROTO_TCP, TCP_KEEPINTVL, 10);
  SetOption(socket, IPPROTO_TCP, TCP_KEEPCNT, 3);
}

Deadline RequestDeadline() { return std::chrono::steady_clock::now() + kRequestTime; }

}  // namespace

void Server::Run(int listener) {
  pollfd waited[] = {{listener, POLLIN, 0}, {stop_.fd(), POLLIN, 0}};
  while (waited[1].revents == 0) {
    if (poll(waited, 2, -1) <= 0 || waited[0].revents == 0) continue;
    tools::Descriptor socket(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC));
    if (socket) {
      Admit(std::move(socket));
    } else if (errno != EINTR && errno != EAGAIN && errno != ECONNABORTED) {
      log_.Remark("cannot accept a client: " + std::generic_category().message(errno));
      stop_.WaitFor(kAcceptPause);
    }
  }
  clients_.clear();  // waits for them
}

void Server::Admit(tools::Descriptor socket) {
  clients_.remove_if([](const std::future<void>& client) {
    return client.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  });
  try {
    if (clients_.size() >= kMostClients) throw std::length_error("too many are connected");
    Tune(socket.get());
    clients_.push_back(std::async(std::launch::async, [this, handed = std::move(socket)]() mutable {
      const tools::Descriptor own = std::move(handed);  // closed as soon as it is served
      Serve(own.get());
    }));
  } catch (const std::exception& error) {
    log_.Remark(std::string("rejected a client: ") + error.what());
  }
}

void Server::Serve(int socket) try {
  const std::string peer = PeerAddress(socket).Text();
  const Deadline deadline = RequestDeadline();
  std::array<std::uint8_t, kOpHeaderSize> header{};
  std::array<std::uint8_t, kBusidSize> field{};
  if (!ReceiveAll(socket, header, deadline, stop_)) return;
  const auto request = DecodeOpHeader(header);
  if (!request) {
    log_.Remark(peer + ": not a request of USB/IP 1.1.1");
  } else if (*request == OpRequest::DeviceList) {
    List(socket);
  } else if (ReceiveAll(socket, field, deadline, stop_)) {
    Import(socket, peer, field);
  }
} catch (const std::exception& error) {
  log_.Remark(std::string("dropped a client: ") + error.what());
}

void Server::List(int socket) {
  Bytes entries;
  std::uint32_t count = 0;
  for (const Export& exported : exports_) {
    const auto device = machine_.OnBus(exported.name);
    if (!device) continue;
    const Bytes entry = EncodeListEntry(exported.place, *device);
    entries.insert(entries.end(), entry.begin(), entry.end());
    ++count;
  }
  Bytes message = EncodeListHead(count);
  message.insert(message.end(), entries.begin(), entries.end());
  SendAll(socket, message, RequestDeadline());
}

void Server::Import(int socket, const std::string& peer, ByteView busidField) {
  const std::string busid = DecodeBusid(busidField);
  const auto refuse = [socket](OpStatus status) {
    SendAll(socket, EncodeImportRefused(status), RequestDeadline());
  };
  const auto exported = std::find_if(exports_.begin(), exports_.end(), [&](const Export& other) {
    return other.place.Busid() == busid;
  });
  const auto device = exported == exports_.end() ? std::nullopt : machine_.OnBus(exported->name);
  if (!device) return refuse(OpStatus::NoDevice);
  const auto number = static_cast<std::size_t>(exported - exports_.begin());
  const std::unique_lock<std::mutex> claim(imported_[number], std::try_to_lock);
  if (!claim) return refuse(OpStatus::DeviceBusy);
  if (!SendAll(socket, EncodeImported(exported->place, *device), RequestDeadline())) return;
  const std::string label = exported->name + " busid=" + busid;
  log_.Event("imported " + label + " by=" + peer);
  const LinkEnd end = RunLink(machine_, *device, exported->place.Devid(), socket, stop_);
  if (end == LinkEnd::NotUsbip) log_.Remark(peer + ": not a message of USB/IP");
  log_.Event("released " + label);
}

}  // namespace qzhub
