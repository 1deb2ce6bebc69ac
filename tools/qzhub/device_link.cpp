#include "qzhub/device_link.h"

#include <algorithm>
#include <utility>

#include "virtualhub/bus/urb_status.h"

namespace qzhub {

namespace {

using virtualhub::Error;
using virtualhub::kUrbNoMemory;
using virtualhub::kUrbOk;
using virtualhub::kUrbStall;
using virtualhub::kUrbUnlinked;
using virtualhub::Result;

constexpr std::size_t kMostTransfers = 64;
constexpr std::uint32_t kInterruptEndpoint = virtualhub::kInterruptInEndpoint & 0x0F;
static_assert(kInterruptEndpoint == virtualhub::kInterruptOutEndpoint);
constexpr auto kPresenceInterval = std::chrono::milliseconds(20);

// Asks for a reset of the port that the device hangs on: SET_FEATURE(PORT_RESET) of the hub class.
constexpr std::uint8_t kPortReset[] = {0x23, 0x03, 0x04, 0x00};

bool IsPortReset(ByteView setup) {
  return std::equal(std::begin(kPortReset), std::end(kPortReset), setup.begin());
}

bool HasLeft(const Result& result) {
  return result.error == Error::Gone || result.error == Error::CutOff;
}

}  // namespace

DeviceLink::DeviceLink(virtualhub::Machine& machine, const virtualhub::BusDevice& device,
                       std::uint32_t devid, Connection connection)
    : devid_(devid), connection_(std::move(connection)), device_(machine, device) {
  worker_ = std::thread([this] { Work(); });
}

DeviceLink::~DeviceLink() {
  RequestEnd();
  worker_.join();
}

void DeviceLink::RequestEnd() {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    ended_ = true;
  }
  wake_.notify_one();
}

// ---- Taking commands ------------------------------------------------------------------------

bool DeviceLink::Receive(ByteView bytes) {
  received_.insert(received_.end(), bytes.begin(), bytes.end());
  ByteView rest = received_;
  while (rest.size() >= kCommandSize) {
    const auto command = DecodeCommand(rest.first(kCommandSize));
    if (!command || command->devid != devid_) return false;
    const std::size_t size = kCommandSize + command->payload();
    if (rest.size() < size) break;
    if (!Take(*command, rest.subspan(kCommandSize, command->payload()))) return false;
    rest = rest.subspan(size);
  }
  received_.erase(received_.begin(), received_.end() - static_cast<std::ptrdiff_t>(rest.size()));
  return true;
}

bool DeviceLink::HasEnded() {
  const std::lock_guard<std::mutex> guard(mutex_);
  return ended_;
}

bool DeviceLink::IsOver() {
  const std::lock_guard<std::mutex> guard(mutex_);
  return over_;
}

bool DeviceLink::Take(const Command& command, ByteView payload) {
  bool good = false;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (ended_) return false;
    good = command.kind == Command::Kind::Submit ? Submit(command, payload) : Unlink(command);
  }
  wake_.notify_one();  // now that the worker finds the mutex free
  return good;
}

bool DeviceLink::IsOutstanding(std::uint32_t sequence) const {
  return underWay_ == sequence || idle_.contains(sequence) ||
         std::any_of(waiting_.begin(), waiting_.end(), [&](const Transfer& transfer) {
           return transfer.command.sequence == sequence;
         });
}

bool DeviceLink::Submit(const Command& command, ByteView payload) {
  if (IsOutstanding(command.sequence)) return false;
  if (waiting_.size() + idle_.size() >= kMostTransfers) {
    return connection_.send(EncodeSubmitted(command.sequence, kUrbNoMemory, 0, {}));
  }
  waiting_.push_back({command, Bytes(payload.begin(), payload.end())});
  return true;
}

bool DeviceLink::Unlink(const Command& command) {
  const std::uint32_t victim = command.victim;
  const bool inTime = IsOutstanding(victim);
  idle_.erase(victim);
  std::erase_if(waiting_,
                [&](const Transfer& transfer) { return transfer.command.sequence == victim; });
  if (underWay_ == victim) underWay_.reset();
  return connection_.send(EncodeUnlinked(command.sequence, inTime ? kUrbUnlinked : kUrbOk));
}

// ---- Carrying them out ----------------------------------------------------------------------

void DeviceLink::Work() {
  // What is imported has been enumerated on this side.
  device_.Enumerate();
  std::unique_lock<std::mutex> lock(mutex_);
  while (!ended_) {
    if (!waiting_.empty()) {
      const Transfer transfer = std::move(waiting_.front());
      waiting_.pop_front();
      CarryOut(transfer, lock);
    } else if (wake_.wait_for(lock, kPresenceInterval) == std::cv_status::timeout &&
               !device_.IsPresent()) {
      End();
    }
  }
  over_ = true;
  connection_.over();
}

void DeviceLink::CarryOut(const Transfer& transfer, std::unique_lock<std::mutex>& lock) {
  const Command& command = transfer.command;
  const bool isInterrupt = command.endpoint == kInterruptEndpoint && command.in;
  if (isInterrupt && !device_.IsHalted()) {
    idle_.insert(command.sequence);
    return;
  }
  underWay_ = command.sequence;
  lock.unlock();
  Bytes answer;
  const Result result = RunTransfer(transfer, answer);
  lock.lock();
  if (underWay_) {
    underWay_.reset();
    const std::size_t sent = result.ok() ? transfer.data.size() : 0;
    const Bytes message = EncodeSubmitted(command.sequence, UrbStatusOf(result),
                                          command.in ? answer.size() : sent, answer);
    if (!connection_.send(message)) End();
  }
  if (device_.IsHalted()) StallIdle();
  if (HasLeft(result)) End();
}

void DeviceLink::StallIdle() {
  for (const std::uint32_t sequence : std::exchange(idle_, {})) {
    if (!connection_.send(EncodeSubmitted(sequence, kUrbStall, 0, {}))) End();
  }
}

Result DeviceLink::RunTransfer(const Transfer& transfer, Bytes& answer) {
  if (transfer.command.endpoint == 0) return Control(transfer, answer);
  const bool isInterruptOut =
      transfer.command.endpoint == kInterruptEndpoint && !transfer.command.in;
  return isInterruptOut ? device_.InterruptOut(transfer.data) : Result{Error::Stall};
}

Result DeviceLink::Control(const Transfer& transfer, Bytes& answer) {
  const Command& command = transfer.command;
  if (IsPortReset(command.setup)) {
    device_.Enumerate();
    return {};
  }
  const virtualhub::SetupPacket setup(command.setup);
  if (setup.length != 0 && setup.IsIn() != command.in) return {Error::Stall};
  const Result result = device_.Control(setup, transfer.data, answer);
  if (answer.size() > command.length) answer.resize(command.length);
  return result;
}

void DeviceLink::End() {
  if (!ended_) connection_.close();
  ended_ = true;
}

}  // namespace qzhub
