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

constexpr auto kAcceptPause = std::chrono::milliseconds(100);
constexpr auto kEndTime = std::chrono::milliseconds(400);

// Places in what Wait waits for.
enum Place : std::size_t { kListener, kStop, kWake, kFirstClient };

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
  std::vector<pollfd> awaited;
  do {
    awaited = Wait(listener);
    wake_.Clear();
    auto next = awaited.cbegin() + kFirstClient;
    for (Client& client : clients_) Serve(client, (next++)->revents);
    RemoveOver();
    if (awaited[kListener].revents != 0) Admit(listener);
  } while (awaited[kStop].revents == 0);
  return EndAll();
}

// What has happened: to the listener, to the events, and to each client in their order.
std::vector<pollfd> Server::Wait(int listener) const {
  const bool accepts = std::chrono::steady_clock::now() >= acceptFrom_;
  Deadline until = accepts ? Deadline::max() : acceptFrom_;
  std::vector<pollfd> awaited(kFirstClient);
  awaited[kListener] = {accepts ? listener : -1, POLLIN, 0};
  awaited[kStop] = {stop_.fd(), POLLIN, 0};
  awaited[kWake] = {wake_.fd(), POLLIN, 0};
  for (const Client& client : clients_) {
    awaited.push_back(client.Awaited());
    until = std::min(until, client.AwaitedUntil());
  }
  // When a signal interrupts it, nothing has happened.
  poll(awaited.data(), awaited.size(), MillisecondsTo(until));
  return awaited;
}

void Server::Admit(int listener) try {
  tools::Descriptor socket(accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  if (!socket) {
    if (errno == EINTR || errno == EAGAIN || errno == ECONNABORTED) return;
    log_.Remark("cannot accept a client: " + std::generic_category().message(errno));
    acceptFrom_ = std::chrono::steady_clock::now() + kAcceptPause;
  } else if (clients_.size() >= kMostClients) {
    log_.Remark("refused " + PeerAddress(socket.get()).Text() + ": " +
                std::to_string(kMostClients) + " clients are connected already");
  } else {
    Tune(socket.get());
    clients_.emplace_back(std::move(socket), patience_, wake_, log_);
  }
} catch (const std::exception& error) {
  log_.Remark(std::string("refused a client: ") + error.what());
}

void Server::Serve(Client& client, short events) try {
  const auto request = client.Work(events);
  if (!request) return;
  if (request->kind == OpRequest::DeviceList) {
    client.Reply(List());
  } else {
    Import(client, request->busid);
  }
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
