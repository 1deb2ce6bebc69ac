#include "qzhub/transfers.h"

#include <algorithm>
#include <utility>

#include "virtualhub/bus/urb_status.h"

namespace qzhub {

namespace {

using virtualhub::Error;
using virtualhub::Result;

constexpr std::size_t kMostTransfers = 64;
constexpr auto kPresenceInterval = std::chrono::milliseconds(20);

bool HasLeft(const Result& result) {
  return result.error == Error::Gone || result.error == Error::CutOff;
}

}  // namespace

Transfers::Transfers(virtualhub::Machine& machine, const virtualhub::BusDevice& device,
                     Connection connection)
    : connection_(std::move(connection)), device_(machine, device) {
  worker_ = std::thread([this] { Work(); });
}

Transfers::~Transfers() {
  RequestEnd();
  worker_.join();
}

void Transfers::RequestEnd() {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    ended_ = true;
  }
  wake_.notify_one();
}

bool Transfers::HasEnded() {
  const std::lock_guard<std::mutex> guard(mutex_);
  return ended_;
}

bool Transfers::IsOver() {
  const std::lock_guard<std::mutex> guard(mutex_);
  return over_;
}

// ---- Taking them ----------------------------------------------------------------------------

const Transfer* Transfers::Find(Transfer::Id id) const {
  if (underWay_ != nullptr && underWay_->id == id) return underWay_;
  for (const auto* transfers : {&waiting_, &idle_}) {
    const auto found = std::find_if(transfers->begin(), transfers->end(),
                                    [&](const Transfer& transfer) { return transfer.id == id; });
    if (found != transfers->end()) return &*found;
  }
  return nullptr;
}

bool Transfers::Submit(Transfer transfer) {
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    if (ended_ || Find(transfer.id) != nullptr) return false;
    if (waiting_.size() + idle_.size() >= kMostTransfers) {
      return Send(transfer.report(virtualhub::kUrbNoMemory, {}));
    }
    waiting_.push_back(std::move(transfer));
  }
  wake_.notify_one();  // now that the worker finds the mutex free
  return true;
}

bool Transfers::TakeBack(Transfer::Id id,
                         const std::function<Bytes(const Transfer::Report*)>& answer) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (ended_) return false;
  const Transfer* const taken = Find(id);
  const Bytes message = answer(taken != nullptr ? &taken->report : nullptr);
  if (underWay_ == taken) underWay_ = nullptr;
  const auto isIt = [&](const Transfer& transfer) { return transfer.id == id; };
  std::erase_if(waiting_, isIt);
  std::erase_if(idle_, isIt);
  return Send(message);
}

// ---- Carrying them out ----------------------------------------------------------------------

void Transfers::Work() {
  // The other end gets a device that has been enumerated on this side.
  device_.Enumerate();
  std::unique_lock<std::mutex> lock(mutex_);
  while (!ended_) {
    if (!waiting_.empty()) {
      Transfer transfer = std::move(waiting_.front());
      waiting_.pop_front();
      CarryOut(std::move(transfer), lock);
    } else if (wake_.wait_for(lock, kPresenceInterval) == std::cv_status::timeout &&
               !device_.IsPresent()) {
      End();
    }
  }
  over_ = true;
  connection_.over();
}

void Transfers::CarryOut(Transfer transfer, std::unique_lock<std::mutex>& lock) {
  if (transfer.kind == Transfer::Kind::InterruptIn && !device_.IsHalted()) {
    idle_.push_back(std::move(transfer));
    return;
  }
  underWay_ = &transfer;
  lock.unlock();
  Bytes answer;
  const Result result = Run(transfer, answer);
  lock.lock();
  if (std::exchange(underWay_, nullptr) != nullptr &&
      !Send(transfer.report(virtualhub::UrbStatusOf(result), answer))) {
    End();
  }
  if (device_.IsHalted()) StallIdle();
  if (HasLeft(result)) End();
}

void Transfers::StallIdle() {
  for (const Transfer& transfer : std::exchange(idle_, {})) {
    if (!Send(transfer.report(virtualhub::kUrbStall, {}))) End();
  }
}

Result Transfers::Run(const Transfer& transfer, Bytes& answer) {
  switch (transfer.kind) {
    case Transfer::Kind::Control:
      return Control(transfer, answer);
    case Transfer::Kind::PortReset:
      device_.Enumerate();
      return {};
    case Transfer::Kind::InterruptOut:
      return device_.InterruptOut(transfer.data);
    default:  // the interrupt IN endpoint is halted
      return {Error::Stall};
  }
}

Result Transfers::Control(const Transfer& transfer, Bytes& answer) {
  const virtualhub::SetupPacket setup(transfer.setup);
  if (setup.length != 0 && setup.IsIn() != transfer.in) return {Error::Stall};
  const Result result = device_.Control(setup, transfer.data, answer);
  if (answer.size() > transfer.room) answer.resize(transfer.room);
  return result;
}

void Transfers::End() {
  if (!ended_) connection_.close();
  ended_ = true;
}

}  // namespace qzhub
