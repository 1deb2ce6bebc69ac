#include "qzhub/client.h"

#include <sys/socket.h>

#include <array>

namespace qzhub {

namespace {

constexpr std::size_t kCommandsSize = 4096;  // of what is read at once

}  // namespace

Client::Client(tools::Descriptor socket, std::chrono::milliseconds patience, const WakeEvent& wake,
               EventLog& log)
    : socket_(std::move(socket)),
      patience_(patience),
      answeredBy_(std::chrono::steady_clock::now() + patience),
      wake_(wake),
      log_(log),
      peer_(PeerAddress(socket_.get()).Text()),
      outbox_(socket_.get()) {}

void Client::Watch(const Poller& poller) {
  const std::uint32_t events = Awaited();
  poller.Watch(socket_.get(), watched_, events, this);
  watched_ = events;
}

// A client that does not take its answers is not read from, so that they cannot pile up.
std::uint32_t Client::Awaited() const {
  if (phase_ == Phase::Ended) return 0;
  const bool isSending = phase_ == Phase::Answering || !outbox_.IsEmpty();
  return isSending ? EPOLLOUT : EPOLLIN;
}

Deadline Client::AwaitedUntil() const {
  if (phase_ == Phase::Asking || phase_ == Phase::Answering) return answeredBy_;
  const bool isSending = phase_ == Phase::Imported && !outbox_.IsEmpty();
  return isSending ? outbox_.LastProgress() + patience_ : Deadline::max();
}

std::optional<Request> Client::Work(bool isReady) {
  std::optional<Request> request;
  if (phase_ == Phase::Ended) return request;
  const bool isLate = std::chrono::steady_clock::now() >= AwaitedUntil();
  const bool isGood = outbox_.Flush();
  const bool isSent = outbox_.IsEmpty();
  if (!isGood || (phase_ == Phase::Answering && isSent)) {
    End();
  } else if (isLate) {
    Drop(phase_ == Phase::Asking ? "no request in time" : "takes no answers");
  } else if (phase_ == Phase::Asking && isReady) {
    request = ReadRequest();
  } else if (phase_ == Phase::Imported && isSent) {
    if (isReady) ReadCommands();
    if (link_->HasEnded() && outbox_.IsEmpty()) End();  // in that order: nothing is sent later
  }
  return request;
}

std::optional<Request> Client::ReadRequest() {
  std::array<std::uint8_t, kOpHeaderSize + kBusidSize> buffer{};
  const bool hasHeader = request_.size() >= kOpHeaderSize;
  const std::size_t wanted = (hasHeader ? buffer.size() : kOpHeaderSize) - request_.size();
  const auto count = ReceiveNow(socket_.get(), virtualhub::MutableBytes(buffer).first(wanted));
  if (!count) End();
  request_.insert(request_.end(), buffer.begin(),
                  buffer.begin() + static_cast<std::ptrdiff_t>(count.value_or(0)));
  if (!count || request_.size() < kOpHeaderSize) return std::nullopt;
  const auto kind = DecodeOpHeader(ByteView(request_).first(kOpHeaderSize));
  if (!kind) Drop("not a request of USB/IP 1.1.1");
  const bool isWhole = kind == OpRequest::DeviceList || request_.size() == buffer.size();
  if (!kind || !isWhole) return std::nullopt;
  return Request{*kind, DecodeBusid(ByteView(request_).subspan(kOpHeaderSize))};
}

void Client::ReadCommands() {
  std::array<std::uint8_t, kCommandsSize> buffer{};
  const auto count = ReceiveNow(socket_.get(), buffer);
  if (!count) {
    End();
  } else if (!link_->Receive(ByteView(buffer).first(*count))) {
    // It is not the client's fault when the connection has failed or the device has left.
    if (outbox_.Flush() && !link_->HasEnded()) Drop("not a message of USB/IP");
    End();
  }
}

void Client::Reply(ByteView message) {
  phase_ = Phase::Answering;
  if (!outbox_.Send(message) || outbox_.IsEmpty()) End();
}

void Client::Import(const Export& exported, virtualhub::Machine& machine,
                    const virtualhub::BusDevice& device) {
  const auto send = [this](ByteView answer) {
    const bool isGood = outbox_.Send(answer);
    if (!isGood || !outbox_.IsEmpty()) wake_.Set();
    return isGood;
  };
  const auto wake = [this] { wake_.Set(); };
  link_.emplace(machine, device, exported.place.Devid(),
                DeviceLink::Connection{.send = send, .close = wake, .over = wake});
  imported_ = &exported;
  phase_ = Phase::Imported;
  if (!outbox_.Send(EncodeImported(exported.place, device))) End();
}

void Client::Drop(const std::string& reason) {
  log_.Remark(peer_ + ": " + reason);
  End();
}

void Client::End() {
  if (phase_ == Phase::Ended) return;
  phase_ = Phase::Ended;
  // The number of the socket stays in use for as long as the link may send to it.
  shutdown(socket_.get(), SHUT_RDWR);
  if (link_) link_->RequestEnd();
}

bool Client::IsOver() { return phase_ == Phase::Ended && (!link_ || link_->IsOver()); }

}  // namespace qzhub
