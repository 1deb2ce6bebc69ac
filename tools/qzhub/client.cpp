#include "qzhub/client.h"

#include <sys/socket.h>

#include <array>

namespace qzhub {

namespace {

// Of what is read at once. The more it is, the longer others wait for a client that sends much.
constexpr std::size_t kChunkSize = 1024;

Line LineOf(Outbox& outbox, const WakeEvent& wake, const std::string& peer) {
  const auto send = [&outbox, &wake](virtualhub::ByteView message) {
    const bool isGood = outbox.Send(message);
    if (!isGood || outbox.IsStuck()) wake.Set();
    return isGood;
  };
  return {.send = send, .wake = [&wake] { wake.Set(); }, .peer = peer};
}

}  // namespace

Client::Client(tools::Descriptor socket, const Begin& begin, std::chrono::milliseconds patience,
               const WakeEvent& wake, EventLog& log)
    : socket_(std::move(socket)),
      patience_(patience),
      deviceBy_(std::chrono::steady_clock::now() + patience),
      log_(log),
      peer_(PeerAddress(socket_.get()).Text()),
      outbox_(socket_.get()),
      session_(begin(LineOf(outbox_, wake, peer_))) {}

void Client::Watch(const Poller& poller) {
  const std::uint32_t events = Awaited();
  poller.Watch(socket_.get(), watched_, events, this);
  watched_ = events;
}

// A client that does not take its answers is not read from, so that they cannot pile up.
std::uint32_t Client::Awaited() const {
  if (isEnded_) return 0;
  return outbox_.IsEmpty() ? EPOLLIN : EPOLLOUT;
}

Deadline Client::AwaitedUntil() const {
  if (!session_->HasDevice()) return deviceBy_;
  return outbox_.IsEmpty() ? Deadline::max() : outbox_.LastProgress() + patience_;
}

void Client::Work(bool isReady) {
  if (isEnded_) return;
  const bool isLate = std::chrono::steady_clock::now() >= AwaitedUntil();
  if (!outbox_.Flush()) return End();
  const bool isSent = outbox_.IsEmpty();
  EndIfDone();
  if (isLate) return Drop(isSent ? "no request in time" : "takes no answers");
  if (!isSent) return;
  session_->Look();
  if (isReady) Read();
  EndIfDone();
}

// In that order: a session that has ended sends nothing more.
void Client::EndIfDone() {
  if (session_->HasEnded() && outbox_.IsEmpty()) End();
}

void Client::Read() {
  if (isEnded_) return;
  std::array<std::uint8_t, kChunkSize> buffer{};
  const auto count = ReceiveNow(socket_.get(), buffer);
  if (!count) return End();
  outbox_.Hold();  // all answers go out in one piece
  try {
    session_->Receive(virtualhub::ByteView(buffer).first(*count));
    if (!outbox_.Flush()) End();
  } catch (const ProtocolError& error) {
    if (!outbox_.Flush()) return End();
    Drop(error.what());
  }
}

void Client::Drop(const std::string& reason) {
  if (isEnded_) return;
  log_.Remark(peer_ + ": " + reason);
  End();
}

void Client::End() {
  if (isEnded_) return;
  isEnded_ = true;
  // The number of the socket stays in use for as long as the session may send to it.
  shutdown(socket_.get(), SHUT_RDWR);
  session_->RequestEnd();
}

}  // namespace qzhub
