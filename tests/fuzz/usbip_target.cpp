// The wire of USB/IP: what is decoded before an import, and the stream of commands after it.
#include <future>
#include <map>

#include "fuzz/library_bench.h"
#include "qzhub/device_link.h"
#include "support/bytes.h"

using namespace qzhid::fuzz;

constexpr std::uint32_t kLastSequence = 0xFFFFFFF0;
const Bytes kGetStatus = qzhid::test::Hex(
    "0 0 0 1 FF FF FF F0 0 1 0 1 0 0 0 1 0 0 0 0 0 0 0 0 0 0 0 2 0 0 0 0 0 0 0 0 0 0 0 0 "
    "80 0 0 0 0 0 2 0");

/// The other end. The link sends one answer at a time.
struct Client {
  bool Receive(ByteView message) {
    Require(message.size() >= qzhub::kCommandSize, "answers are whole");
    const std::uint32_t kind = message[3];
    const std::uint32_t sequence =
        virtualhub::BigEndian16(message, 4) * 0x10000u + virtualhub::BigEndian16(message, 6);
    Require(kind == 4 || (kind == 3 && --open[sequence] >= 0), "a transfer is answered once");
    if (kind == 3 && sequence == kLastSequence) End();
    return true;
  }
  void End() {
    if (!std::exchange(hasEnded, true)) ended.set_value();
  }

  std::map<std::uint32_t, int> open;  ///< how often each transfer was sent and not answered
  bool hasEnded = false;
  std::promise<void> ended;
};

/// The stream with its last command filled up, then one that is answered after all others. Shows
/// the client what it sends.
static Bytes Stream(Bytes stream, Client& client) {
  const std::size_t end = stream.size();
  for (std::size_t at = 0; at < end;) {
    stream.resize(std::max(stream.size(), at + qzhub::kCommandSize));
    const auto command = qzhub::DecodeCommand(ByteView(stream).subspan(at, qzhub::kCommandSize));
    if (!command) return stream;
    client.open[command->sequence] += command->kind == qzhub::Command::Kind::Submit ? 1 : 0;
    at += qzhub::kCommandSize + command->payload();
    stream.resize(std::max(stream.size(), at));
  }
  ++client.open[kLastSequence];
  stream.insert(stream.end(), kGetStatus.begin(), kGetStatus.end());
  return stream;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  Bytes header = input.Take(qzhub::kOpHeaderSize);
  header.resize(qzhub::kOpHeaderSize);
  qzhub::DecodeOpHeader(header);
  qzhub::DecodeBusid(input.Take(qzhub::kBusidSize));

  const std::size_t piece = input.Byte() + 1u;
  Client client;
  const Bytes stream = Stream(input.Take(size), client);
  LibraryBench bench(HubScenario());
  qzhub::DeviceLink link(
      bench.machine, *bench.machine.OnBus("hub"), 0x00010001,
      {[&](ByteView message) { return client.Receive(message); }, [&] { client.End(); }});
  bool isGood = true;
  for (std::size_t at = 0; isGood && at < stream.size(); at += piece) {
    isGood = link.Receive(ByteView(stream).subspan(at, std::min(piece, stream.size() - at)));
  }
  if (isGood) client.ended.get_future().wait();
  return 0;
}
