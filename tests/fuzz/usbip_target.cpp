// The wire of USB/IP: what is decoded before an import, and the stream of commands behind it.
#include <future>
#include <map>
#include <mutex>
#include <utility>

#include "fuzz/machine.h"
#include "qzhub/device_link.h"

using namespace qzhid::fuzz;

namespace {

constexpr std::uint32_t kDevid = 0x00010001, kLastSequence = 0xFFFFFFF0;

/// The other end: keeps count of what is answered.
class Client {
 public:
  bool Receive(ByteView message) {
    Require(message.size() >= qzhub::kCommandSize, "answers are whole");
    const std::uint32_t kind = message[3],
                        sequence = virtualhub::BigEndian16(message, 4) * 0x10000u +
                                   virtualhub::BigEndian16(message, 6);
    const std::lock_guard<std::mutex> guard(mutex_);
    Require(kind == 4 || (kind == 3 && --open_[sequence] >= 0), "a transfer is answered once");
    if (kind == 3 && sequence == kLastSequence) Finish();
    return true;
  }
  void Close() {
    const std::lock_guard<std::mutex> guard(mutex_);
    Finish();
  }
  void Sends(const qzhub::Command& command) {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (command.kind == qzhub::Command::Kind::Submit) ++open_[command.sequence];
  }
  void WaitForTheEnd() { finished_.get_future().wait(); }

 private:
  void Finish() {
    if (!std::exchange(isFinished_, true)) finished_.set_value();
  }

  std::mutex mutex_;
  std::map<std::uint32_t, int> open_;
  std::promise<void> finished_;
  bool isFinished_ = false;
};

/// The stream with its last command filled up, then a GET_STATUS, which is answered behind all
/// others. Tells the client what it sends.
Bytes Stream(Bytes stream, Client& client) {
  for (std::size_t at = 0, end = stream.size(); at < end;) {
    stream.resize(std::max(stream.size(), at + qzhub::kCommandSize));
    const auto command = qzhub::DecodeCommand(ByteView(stream).subspan(at, qzhub::kCommandSize));
    if (!command) return stream;
    client.Sends(*command);
    at += qzhub::kCommandSize + command->payload();
    stream.resize(std::max(stream.size(), at));
  }
  Bytes last(qzhub::kCommandSize);
  const std::pair<std::size_t, std::uint16_t> words[] = {{2, 1},
                                                         {4, kLastSequence >> 16},
                                                         {6, kLastSequence & 0xFFFF},
                                                         {8, 1},
                                                         {10, 1},
                                                         {14, 1},
                                                         {26, 2},
                                                         {40, 0x8000},
                                                         {46, 0x0200}};
  for (const auto& [at, word] : words) virtualhub::PutBigEndian16(last, at, word);
  client.Sends(*qzhub::DecodeCommand(last));
  stream.insert(stream.end(), last.begin(), last.end());
  return stream;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  Bytes header = input.Take(qzhub::kOpHeaderSize), field = input.Take(qzhub::kBusidSize);
  header.resize(qzhub::kOpHeaderSize);
  qzhub::DecodeOpHeader(header);
  Require(qzhub::DecodeBusid(field).size() <= qzhub::kBusidSize, "a bus id fits its field");

  const std::size_t piece = input.Byte() + 1u;
  Client client;
  const Bytes stream = Stream(input.Take(size), client);
  Machine machine({.devices = {HubDevice()}});
  qzhub::DeviceLink link(
      machine.world, *machine.world.OnBus("hub"), kDevid,
      {[&](ByteView message) { return client.Receive(message); }, [&] { client.Close(); }});
  bool isGood = true;
  for (std::size_t at = 0; isGood && at < stream.size(); at += piece) {
    isGood = link.Receive(ByteView(stream).subspan(at, std::min(piece, stream.size() - at)));
  }
  if (isGood) client.WaitForTheEnd();
  return 0;
}
