#include "qzhub/server.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "qzhub/usbip_session.h"

namespace qzhub {

namespace {

constexpr auto kLongestLook = std::chrono::milliseconds(250);
constexpr auto kDeviceLook = std::chrono::milliseconds(20);
constexpr int kMostAdmitted = 64;  // at once; the others come next
constexpr auto kEndTime = std::chrono::milliseconds(400);

void SetOption(int socket, int level, int option, int value) {
  // These are improvements only; a socket without them works, too.
  setsockopt(socket, level, option, &value, sizeof(value));
}

// Answers go out at once, few are kept for a client that does not take them, and one that vanishes
// without a word is noticed in a minute.
void Tune(int socket) {
  SetOption(socket, SOL_SOCKET, SO_SNDBUF, 0x8000);
  SetOption(socket, IPPROTO_TCP, TCP_NODELAY, 1);
  SetOption(socket, SOL_SOCKET, SO_KEEPALIVE, 1);
  SetOption(socket, IPPROTO_TCP, TCP_KEEPIDLE, 30);
  SetOption(socket, IPPROTO_TCP, TCP_KEEPINTVL, 10);
  SetOption(socket, IPPROTO_TCP, TCP_KEEPCNT, 3);
}

}  // namespace

Entrance UsbipEntrance(int listener, Offer& offer) {
  return {listener,
          [&offer](Line line) { return std::make_unique<UsbipSession>(offer, std::move(line)); }};
}

bool Server::Run(std::vector<Entrance> entrances) {
  entrances_ = std::move(entrances);
  // What happens to these has the server as its owner, or none.
  poller_.Watch(stop_.fd(), 0, EPOLLIN, this);
  poller_.Watch(wake_.fd(), 0, EPOLLIN, nullptr);
  while (Await()) RemoveOver();
  return EndAll();
}

// Waits for events and sees to them; false when the end is requested.
bool Server::Await() {
  if (MillisecondsTo(nextLook_) == 0) Look();
  for (const epoll_event& event : poller_.Wait(TimeToNextLook())) {
    void* const owner = event.data.ptr;
    if (owner == this) return false;
    if (owner == nullptr) {
      nextLook_ = {};
    } else if (const Entrance* const entrance = EntranceOf(owner)) {
      for (int admitted = 0; admitted < kMostAdmitted && Admit(*entrance); ++admitted) {
      }
    } else {
      Serve(*static_cast<Client*>(owner), true);
    }
  }
  return true;
}

const Entrance* Server::EntranceOf(const void* owner) const {
  const auto found = std::find_if(entrances_.begin(), entrances_.end(),
                                  [&](const Entrance& entrance) { return &entrance == owner; });
  return found == entrances_.end() ? nullptr : &*found;
}

// Without clients there is nothing to look after.
int Server::TimeToNextLook() const {
  return clients_.empty() && listens_ ? -1 : MillisecondsTo(nextLook_);
}

// Sees to what clients have not done in time, and to what other threads have done for them.
void Server::Look() {
  wake_.Clear();
  for (Client& client : clients_) Serve(client, false);
  Listen(true);
  const bool isAwaited = std::any_of(clients_.begin(), clients_.end(),
                                     [](const Client& one) { return one.AwaitsDevice(); });
  nextLook_ = std::chrono::steady_clock::now() +
              std::min(isAwaited ? kDeviceLook : kLongestLook, patience_ / 20);
}

void Server::Listen(bool isOn) {
  if (isOn == listens_) return;
  const std::uint32_t events = EPOLLIN;
  for (Entrance& entrance : entrances_) {
    poller_.Watch(entrance.listener, listens_ ? events : 0, isOn ? events : 0, &entrance);
  }
  listens_ = isOn;
}

// False when nobody else waits to be admitted.
bool Server::Admit(const Entrance& entrance) try {
  tools::Descriptor socket(
      accept4(entrance.listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!socket) {
    if (errno == EAGAIN) return false;
    if (errno == EINTR || errno == ECONNABORTED) return true;
    log_.Remark("cannot accept a client: " + std::generic_category().message(errno));
    Listen(false);  // until the next look
    return false;
  }
  if (clients_.size() >= kMostClients) {
    log_.Remark("refused " + PeerAddress(socket.get()).Text() + ": " +
                std::to_string(kMostClients) + " clients are connected already");
  } else {
    Tune(socket.get());
    Client& client =
        clients_.emplace_back(std::move(socket), entrance.begin, patience_, wake_, log_);
    client.Watch(poller_);
  }
  return true;
} catch (const std::exception& error) {
  log_.Remark(std::string("refused a client: ") + error.what());
  return true;
}

void Server::Serve(Client& client, bool isReady) try {
  client.Work(isReady);
  client.Watch(poller_);
} catch (const std::exception& error) {
  log_.Remark("dropped " + client.peer() + ": " + error.what());
  client.End();
}

void Server::RemoveOver() {
  clients_.remove_if([](Client& client) { return client.IsOver(); });
}

bool Server::EndAll() {
  for (Client& client : clients_) client.End();
  const Deadline until = std::chrono::steady_clock::now() + kEndTime;
  RemoveOver();
  while (!clients_.empty() && MillisecondsTo(until) > 0) {
    pollfd awaited{wake_.fd(), POLLIN, 0};
    poll(&awaited, 1, MillisecondsTo(until));
    wake_.Clear();
    RemoveOver();
  }
  return clients_.empty();
}

}  // namespace qzhub
