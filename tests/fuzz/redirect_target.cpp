// The wire of usbredir: what a guest sends, and how often each of its packets is answered.
#include <condition_variable>
#include <map>

#include "fuzz/library_bench.h"
#include "qzhub/redirect_link.h"
#include "support/bytes.h"

using namespace qzhid::fuzz;
namespace redirect = qzhub::redirect;

constexpr std::uint64_t kLastId = 0xFFFFFFF0;
const Bytes kGetStatus = qzhid::test::Hex("80 0 80 0 0 0 0 0 2 0");

/// The guest. The link sends one message at a time; those from its other thread are waited for.
class Guest {
 public:
  bool Receive(ByteView messages) {
    const std::lock_guard<std::mutex> guard(mutex_);
    while (!messages.empty()) {
      const std::size_t header = redirect::Encode({}, 0, {}, shared_).size();
      Require(messages.size() >= header, "messages are whole");
      const std::size_t size = header + virtualhub::LittleEndian32(messages, 4);
      Require(messages.size() >= size, "messages are whole");
      See(virtualhub::LittleEndian32(messages, 0), virtualhub::LittleEndian32(messages, 8));
      messages = messages.subspan(size);
    }
    return true;
  }
  /// What the guest has in common with the link from now on.
  void Agree(redirect::Shared shared) {
    const std::lock_guard<std::mutex> guard(mutex_);
    shared_ = shared;
  }
  void Open(const redirect::Message& message) {
    using enum redirect::Type;
    const std::lock_guard<std::mutex> guard(mutex_);
    const bool isAnswered = message.type == ControlPacket || message.type == BulkPacket ||
                            message.type == InterruptPacket;
    if (isAnswered) ++open_[static_cast<std::uint32_t>(message.id)];
  }
  void End() {
    const std::lock_guard<std::mutex> guard(mutex_);
    hasEnded_ = true;
    changed_.notify_all();
  }
  void AwaitEnd() {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [this] { return hasEnded_; });
  }

 private:
  void See(std::uint32_t type, std::uint32_t id) {
    if (type < static_cast<std::uint32_t>(redirect::Type::ControlPacket)) return;
    Require(--open_[id] >= 0, "a packet is answered once");
    hasEnded_ = hasEnded_ || id == kLastId;
    changed_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  redirect::Shared shared_;
  std::map<std::uint32_t, int> open_;  ///< how often each packet was sent and not answered
  bool hasEnded_ = false;
};

/// The stream with its last message filled up, then one that is answered after all others. Shows
/// the guest what it sends.
static Bytes Stream(Bytes stream, Guest& guest, const redirect::Shared& shared) {
  const std::size_t end = stream.size(), header = redirect::Encode({}, 0, {}, shared).size();
  for (std::size_t at = 0; at < end;) {
    stream.resize(std::max(stream.size(), at + header));
    const auto size = redirect::MessageSize(ByteView(stream).subspan(at), shared);
    if (!size) return stream;
    stream.resize(std::max(stream.size(), at + *size));
    const auto message = redirect::Decode(ByteView(stream).subspan(at, *size), shared);
    if (!message) return stream;
    guest.Open(*message);
    at += *size;
  }
  const Bytes last = redirect::Encode(redirect::Type::ControlPacket, kLastId, kGetStatus, shared);
  guest.Open(*redirect::Decode(last, shared));
  stream.insert(stream.end(), last.begin(), last.end());
  return stream;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const bool isPolite = input.Flag();
  const std::uint32_t capabilities = input.Byte();
  const std::size_t piece = input.Byte() + 1u;
  LibraryBench bench(HubScenario());
  Guest guest;
  qzhub::RedirectLink link(bench.machine, "hub",
                           {.send = [&](ByteView bytes) { return guest.Receive(bytes); },
                            .wake = [&] { guest.End(); },
                            .remark = [](const std::string&) {}});
  if (!isPolite) {
    link.Receive(input.Take(size));
    return 0;
  }
  Bytes hello(64);
  virtualhub::AppendLittleEndian(hello, capabilities);
  const redirect::Shared shared = capabilities & redirect::kOwnCapabilities;
  guest.Agree(shared);
  bool isGood = link.Receive(redirect::Encode(redirect::Type::Hello, 0, hello, {}));
  Require(isGood, "a guest may say hello");
  link.Look();
  const Bytes stream = Stream(input.Take(size), guest, shared);
  for (std::size_t at = 0; isGood && at < stream.size(); at += piece) {
    isGood = link.Receive(ByteView(stream).subspan(at, std::min(piece, stream.size() - at)));
    link.Look();
  }
  if (isGood) guest.AwaitEnd();
  return 0;
}
