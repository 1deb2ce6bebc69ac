#include "qzhub/server.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace qzhub {

namespace {

constexpr auto kLongestLook = std::chrono::milliseconds(250);
constexpr auto kEndTime = std::chrono::milliseconds(400);

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

std::string Label(const Export& exported) {
  return exported.name + " busid=" + exported.place.Busid();
}

}  // namespace

bool Server::Run(int listener) {
  listener_ = listener;
  // What happens to these has the server as its owner, or none.
  poller_.Watch(stop_.fd(), 0, EPOLLIN, this);
  poller_.Watch(wake_.fd(), 0, EPOLLIN, nullptr);
  bool isStopping = false;
  while (!isStopping) {
    if (MillisecondsTo(nextLook_) == 0) Look();
    for (const epoll_event& event : poller_.Wait(TimeToNextLook())) {
      void* const owner = event.data.ptr;
      if (owner == this) {
        isStopping = true;
      } else if (owner == &listener_) {
        Admit();
      } else if (owner == nullptr) {
        nextLook_ = {};
      } else {
        Serve(*static_cast<Client*>(owner), true);
      }
    }
    RemoveOver();
  }
  return EndAll();
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
  nextLook_ = std::chrono::steady_clock::now() + std::min(kLongestLook, patience_ / 20);
}

void Server::Listen(bool isOn) {
  if (isOn == listens_) return;
  const std::uint32_t events = EPOLLIN;
  poller_.Watch(listener_, listens_ ? events : 0, isOn ? events : 0, &listener_);
  listens_ = isOn;
}

void Server::Admit() try {
  tools::Descriptor socket(accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!socket) {
    if (errno == EINTR || errno == EAGAIN || errno == ECONNABORTED) return;
    log_.Remark("cannot accept a client: " + std::generic_category().message(errno));
    Listen(false);  // until the next look
  } else if (clients_.size() >= kMostClients) {
    log_.Remark("refused " + PeerAddress(socket.get()).Text() + ": " +
                std::to_string(kMostClients) + " clients are connected already");
  } else {
    Tune(socket.get());
    Client& client = clients_.emplace_back(std::move(socket), patience_, wake_, log_);
    client.Watch(poller_);
  }
} catch (const std::exception& error) {
  log_.Remark(std::string("refused a client: ") + error.what());
}

void Server::Serve(Client& client, bool isReady) try {
  const auto request = client.Work(isReady);
  if (request && request->kind == OpRequest::DeviceList) client.Reply(List());
  if (request && request->kind == OpRequest::Import) Import(client, request->busid);
  client.Watch(poller_);
} catch (const std::exception& error) {
  log_.Remark("dropped " + client.peer() + ": " + error.what());
  client.End();
}

Bytes Server::List() {
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
  return message;
}

void Server::Import(Client& client, const std::string& busid) {
  const auto exported = std::find_if(exports_.begin(), exports_.end(), [&](const Export& other) {
    return other.place.Busid() == busid;
  });
  const auto device = exported == exports_.end() ? std::nullopt : machine_.OnBus(exported->name);
  if (!device) return client.Reply(EncodeImportRefused(OpStatus::NoDevice));
  const bool isTaken = std::any_of(clients_.begin(), clients_.end(), [&](const Client& other) {
    return other.imported() == &*exported;
  });
  if (isTaken) return client.Reply(EncodeImportRefused(OpStatus::DeviceBusy));
  client.Import(*exported, machine_, *device);
  log_.Event("imported " + Label(*exported) + " by=" + client.peer());
}

void Server::RemoveOver() {
  clients_.remove_if([this](Client& client) {
    if (!client.IsOver()) return false;
    if (client.imported() != nullptr) log_.Event("released " + Label(*client.imported()));
    return true;
  });
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
