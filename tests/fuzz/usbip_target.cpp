// The wire of USB/IP: what is decoded before an import, and the stream of commands after it.
#include <future>
#include <map>
#include <mutex>

#include "fuzz/library_bench.h"
#include "qzhub/device_link.h"

using namespace qzhid::fuzz;
using virtualhub::BigEndian16;

namespace {

constexpr std::uint32_t kDevid = 0x00010001, kLastSequence = 0xFFFFFFF0;

/// The other end: keeps count of what is answered.
struct Client {
  bool Receive(ByteView message) {
    Require(message.size() >= qzhub::kCommandSize, "answers are whole");
    const std::uint32_t kind = message[3];
    const std::uint32_t sequence = BigEndian16(message, 4) * 0x10000u + BigEndian16(message, 6);
    const std::lock_guard<std::mutex> guard(mutex);
    Require(kind == 4 || (kind == 3 && --open[sequence] >= 0), "a transfer is answered once");
    if (kind == 3 && sequence == kLastSequence) End();
    return true;
  }
  void End() {
    std::call_once(once, [this] { ended.set_value(); });
  }

  std::mutex mutex;
  std::map<std::uint32_t, int> open;
  std::once_flag once;
  std::promise<void> ended;
};

/// GET_STATUS of the device.
Bytes LastCommand() {
  Bytes last(qzhub::kCommandSize);
  last[3] = last[9] = last[11] = last[15] = 1;
  last[27] = last[46] = 2;
  last[40] = 0x80;
  virtualhub::PutBigEndian16(last, 4, kLastSequence >> 16);
  virtualhub::PutBigEndian16(last, 6, kLastSequence & 0xFFFF);
  return last;
}

/// The stream with its last command filled up, then one that is answered after all others. Shows
/// the client what it sends.
Bytes Stream(Bytes stream, Client& client) {
  const std::size_t end = stream.size();
  for (std::size_t at = 0; at < end;) {
    stream.resize(std::max(stream.size(), at + qzhub::kCommandSize));
    const auto command = qzhub::DecodeCommand(ByteView(stream).subspan(at, qzhub::kCommandSize));
    if (!command) return stream;
    client.open[command->sequence] += command->kind == qzhub::Command::Kind::Submit ? 1 : 0;
    at += qzhub::kCommandSize + command->payload();
    stream.resize(std::max(stream.size(), at));
  }
  const Bytes last = LastCommand();
  ++client.open[kLastSequence];
  stream.insert(stream.end(), last.begin(), last.end());
  return stream;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  Bytes header = input.Take(qzhub::kOpHeaderSize);
  header.resize(qzhub::kOpHeaderSize);
  qzhub::DecodeOpHeader(header);
  qzhub::DecodeBusid(input.Take(qzhub::kBusidSize));

  const std::size_t piece = input.Byte() + 1u;
  Client client;
  const Bytes stream = Stream(input.Take(size), client);
  LibraryBench bench(HubDevice());
  qzhub::DeviceLink link(
      bench.machine, *bench.machine.OnBus("hub"), kDevid,
      {[&](ByteView message) { return client.Receive(message); }, [&] { client.End(); }});
  bool isGood = true;
  for (std::size_t at = 0; isGood && at < stream.size(); at += piece) {
    isGood = link.Receive(ByteView(stream).subspan(at, std::min(piece, stream.size() - at)));
  }
  if (isGood) client.ended.get_future().wait();
  return 0;
}
