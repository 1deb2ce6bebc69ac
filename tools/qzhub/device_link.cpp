#include "qzhub/device_link.h"

#include <algorithm>

#include "virtualhub/bus/urb_status.h"

namespace qzhub {

namespace {

constexpr std::uint32_t kInterruptEndpoint = virtualhub::kInterruptInEndpoint & 0x0F;
static_assert(kInterruptEndpoint == virtualhub::kInterruptOutEndpoint);

// Asks for a reset of the port that the device is plugged into: SET_FEATURE(PORT_RESET) of the hub
// class.
constexpr std::uint8_t kPortReset[] = {0x23, 0x03, 0x04, 0x00};

bool IsPortReset(ByteView setup) {
  return std::equal(std::begin(kPortReset), std::end(kPortReset), setup.begin());
}

Transfer::Kind KindOf(const Command& command) {
  using enum Transfer::Kind;
  if (command.endpoint == 0) return IsPortReset(command.setup) ? PortReset : Control;
  if (command.endpoint != kInterruptEndpoint) return NoEndpoint;
  return command.in ? InterruptIn : InterruptOut;
}

Transfer TransferOf(const Command& command, ByteView data) {
  const auto report = [sequence = command.sequence, in = command.in, size = data.size()](
                          std::int32_t status, ByteView answer) {
    const std::size_t sent = status == virtualhub::kUrbOk ? size : 0;
    return EncodeSubmitted(sequence, status, in ? answer.size() : sent, answer);
  };
  return {.id = {command.sequence},
          .kind = KindOf(command),
          .report = report,
          .setup = command.setup,
          .in = command.in,
          .data = Bytes(data.begin(), data.end()),
          .room = command.length};
}

}  // namespace

bool DeviceLink::Receive(ByteView bytes) {
  const auto size = [this](ByteView rest) -> std::optional<std::size_t> {
    if (rest.size() < kCommandSize) return 0;
    const auto command = DecodeCommand(rest.first(kCommandSize));
    if (!command || command->devid != devid_) return std::nullopt;
    return kCommandSize + command->payload();
  };
  return stream_.Receive(bytes, size, [this](ByteView message) { return Take(message); });
}

bool DeviceLink::Take(ByteView message) {
  const Command command = *DecodeCommand(message.first(kCommandSize));
  if (command.kind == Command::Kind::Unlink) return Unlink(command);
  return transfers_.Submit(TransferOf(command, message.subspan(kCommandSize)));
}

bool DeviceLink::Unlink(const Command& command) {
  return transfers_.TakeBack({command.victim}, [&](const Transfer::Report* taken) {
    return EncodeUnlinked(command.sequence,
                          taken != nullptr ? virtualhub::kUrbUnlinked : virtualhub::kUrbOk);
  });
}

}  // namespace qzhub
