#include "qzhub/redirect_link.h"

#include <algorithm>
#include <utility>

#include "virtualhub/bus/urb_status.h"

namespace qzhub {

using redirect::Message;
using redirect::Status;
using redirect::Type;

namespace {

// The interrupt IN endpoint being read from, as one transfer.
constexpr Transfer::Id kReading{.number = 0, .isOurs = true};

Transfer::Kind KindOf(const Message& packet) {
  const std::uint8_t endpoint = redirect::EndpointOf(packet);
  const bool isControl = packet.type == Type::ControlPacket && (endpoint & 0x0F) == 0;
  const bool isReport =
      packet.type == Type::InterruptPacket && endpoint == virtualhub::kInterruptOutEndpoint;
  return isControl  ? Transfer::Kind::Control
         : isReport ? Transfer::Kind::InterruptOut
                    : Transfer::Kind::NoEndpoint;
}

Bytes InterruptStatus(Status status, std::uint8_t endpoint) {
  return {static_cast<std::uint8_t>(status), endpoint};
}

}  // namespace

struct RedirectLink::Handler {
  Type type;
  bool needsDevice;  // without one, the message is for a device that has just left
  bool (RedirectLink::*take)(const Message&);
};

RedirectLink::RedirectLink(virtualhub::Machine& machine, std::string device, Connection connection)
    : machine_(machine), name_(std::move(device)), connection_(std::move(connection)) {
  Send(Type::Hello, redirect::Hello());
}

bool RedirectLink::Send(Type type, ByteView body) const {
  return connection_.send(redirect::Encode(type, 0, body, shared_));
}

bool RedirectLink::Receive(ByteView bytes) {
  return stream_.Receive(
      bytes, [this](ByteView rest) { return redirect::MessageSize(rest, shared_); },
      [this](ByteView message) { return Take(message); });
}

bool RedirectLink::Take(ByteView bytes) {
  static constexpr Handler kHandlers[] = {
      {Type::Hello, false, &RedirectLink::Greet},
      {Type::DisconnectAck, false, &RedirectLink::Acknowledge},
      {Type::FilterReject, false, &RedirectLink::HearRejection},
      {Type::Filter, false, &RedirectLink::Ignore},
      {Type::Reset, true, &RedirectLink::Reset},
      {Type::SetConfiguration, true, &RedirectLink::SetConfiguration},
      {Type::GetConfiguration, true, &RedirectLink::GetConfiguration},
      {Type::SetAltSetting, true, &RedirectLink::SetAltSetting},
      {Type::GetAltSetting, true, &RedirectLink::GetAltSetting},
      {Type::StartIsochronous, true, &RedirectLink::RefuseIsochronous},
      {Type::StopIsochronous, true, &RedirectLink::RefuseIsochronous},
      {Type::IsochronousPacket, true, &RedirectLink::Ignore},
      {Type::StartInterrupt, true, &RedirectLink::StartInterrupts},
      {Type::StopInterrupt, true, &RedirectLink::StopInterrupts},
      {Type::CancelPacket, true, &RedirectLink::Cancel},
      {Type::ControlPacket, true, &RedirectLink::CarryPacket},
      {Type::BulkPacket, true, &RedirectLink::CarryPacket},
      {Type::InterruptPacket, true, &RedirectLink::CarryPacket},
  };
  const auto message = redirect::Decode(bytes, shared_);
  if (!message) return false;
  const auto handler =
      std::find_if(std::begin(kHandlers), std::end(kHandlers),
                   [&](const Handler& candidate) { return candidate.type == message->type; });
  if (handler->needsDevice && !transfers_) return true;
  return (this->*handler->take)(*message);
}

// ---- The device comes and goes ------------------------------------------------------------------

bool RedirectLink::Greet(const Message& message) {
  shared_ = redirect::DecodeCapabilities(message.body) & redirect::kOwnCapabilities;
  return true;
}

void RedirectLink::Look() {
  if (!shared_) return;
  if (transfers_ && transfers_->IsOver()) {
    transfers_.reset();
    awaitsAck_ = (*shared_ & redirect::kDisconnectAck) != 0;
    Send(Type::DeviceDisconnect, {});
  }
  if (transfers_ || awaitsAck_) return;
  if (const auto device = machine_.OnBus(name_)) Connect(*device);
}

void RedirectLink::Connect(const virtualhub::BusDevice& device) {
  device_ = device;
  connection_.send(Description());
  Send(Type::DeviceConnect, redirect::DeviceConnect(device, *shared_));
  transfers_.emplace(
      machine_, device,
      Transfers::Connection{.send = connection_.send, .close = [] {}, .over = connection_.wake});
}

// The messages that come before each use of a configuration.
Bytes RedirectLink::Description() const {
  Bytes messages =
      Encode(Type::EndpointInfo, 0, redirect::EndpointInfo(*device_, *shared_), shared_);
  virtualhub::Append(messages,
                     Encode(Type::InterfaceInfo, 0, redirect::InterfaceInfo(*device_), shared_));
  return messages;
}

// What it sent before was for the device that has left.
bool RedirectLink::Acknowledge(const Message&) {
  awaitsAck_ = false;
  return true;
}

bool RedirectLink::HearRejection(const Message&) {
  connection_.remark("the guest rejects " + name_ +
                     ": its filter forbids the device, or its controller has no high speed");
  return true;
}

bool RedirectLink::Ignore(const Message&) { return true; }

void RedirectLink::RequestEnd() {
  if (transfers_) transfers_->RequestEnd();
}

// ---- Transfers ----------------------------------------------------------------------------------

// It is not the guest's fault when the device has left.
bool RedirectLink::Submit(Transfer transfer) {
  return transfers_->Submit(std::move(transfer)) || transfers_->HasEnded();
}

bool RedirectLink::Reset(const Message&) {
  return Submit({.id = {.number = ++resets_, .isOurs = true},
                 .kind = Transfer::Kind::PortReset,
                 .report = [](std::int32_t, ByteView) { return Bytes(); }});
}

// A control request that has messages of its own. The answer begins with the status and ends with
// the setting, which is the one in `answerBody` if the request sets it.
bool RedirectLink::Request(const Message& message, const Bytes& setup, Type answerType,
                           const Bytes& answerBody) {
  const bool isIn = redirect::IsIn(setup[0]);
  const auto report = [this, id = message.id, isIn, answerType, body = answerBody](
                          std::int32_t status, ByteView answer) {
    Bytes filled = body;
    filled.front() = static_cast<std::uint8_t>(redirect::StatusOf(status));
    if (!answer.empty()) filled.back() = answer.front();
    Bytes messages = isIn || status != virtualhub::kUrbOk ? Bytes() : Description();
    virtualhub::Append(messages, Encode(answerType, id, filled, shared_));
    return messages;
  };
  return Submit({.id = {message.id},
                 .kind = Transfer::Kind::Control,
                 .report = report,
                 .setup = setup,
                 .in = isIn,
                 .room = 1});
}

bool RedirectLink::SetConfiguration(const Message& message) {
  const std::uint8_t value = message.body[0];
  return Request(message, {0x00, 0x09, value, 0, 0, 0, 0, 0}, Type::ConfigurationStatus,
                 {0, value});
}

bool RedirectLink::GetConfiguration(const Message& message) {
  return Request(message, {0x80, 0x08, 0, 0, 0, 0, 1, 0}, Type::ConfigurationStatus, {0, 0});
}

bool RedirectLink::SetAltSetting(const Message& message) {
  const std::uint8_t interface = message.body[0], value = message.body[1];
  return Request(message, {0x01, 0x0B, value, 0, interface, 0, 0, 0}, Type::AltSettingStatus,
                 {0, interface, value});
}

bool RedirectLink::GetAltSetting(const Message& message) {
  const std::uint8_t interface = message.body[0];
  return Request(message, {0x81, 0x0A, 0, 0, interface, 0, 1, 0}, Type::AltSettingStatus,
                 {0, interface, 0});
}

bool RedirectLink::RefuseIsochronous(const Message& message) {
  const Bytes body{static_cast<std::uint8_t>(Status::Invalid), message.body[0]};
  return connection_.send(Encode(Type::IsochronousStatus, message.id, body, shared_));
}

// Ends only when the endpoint halts, which stops the reading.
bool RedirectLink::StartInterrupts(const Message& message) {
  const std::uint8_t endpoint = message.body[0];
  const bool isValid = endpoint == virtualhub::kInterruptInEndpoint;
  const Bytes body = InterruptStatus(isValid ? Status::Success : Status::Invalid, endpoint);
  if (!connection_.send(Encode(Type::InterruptStatus, message.id, body, shared_))) return false;
  if (!isValid) return true;
  const auto report = [this, endpoint](std::int32_t, ByteView) {
    return Encode(Type::InterruptStatus, 0, InterruptStatus(Status::Stall, endpoint), shared_);
  };
  // Nothing changes when it is being read from already.
  transfers_->Submit({.id = kReading, .kind = Transfer::Kind::InterruptIn, .report = report});
  return true;
}

bool RedirectLink::StopInterrupts(const Message& message) {
  const std::uint8_t endpoint = message.body[0];
  const bool isValid = endpoint == virtualhub::kInterruptInEndpoint;
  const Bytes body = InterruptStatus(isValid ? Status::Success : Status::Invalid, endpoint);
  Bytes answer = Encode(Type::InterruptStatus, message.id, body, shared_);
  if (!isValid) return connection_.send(answer);
  transfers_->TakeBack(kReading, [&](const Transfer::Report*) { return answer; });
  return true;
}

// An answer that is under way already is the only one.
bool RedirectLink::Cancel(const Message& message) {
  transfers_->TakeBack({message.id}, [](const Transfer::Report* taken) {
    return taken != nullptr ? (*taken)(virtualhub::kUrbUnlinked, {}) : Bytes();
  });
  return true;
}

bool RedirectLink::CarryPacket(const Message& packet) {
  const bool isIn = redirect::IsIn(redirect::EndpointOf(packet));
  const auto report = [this, type = packet.type, id = packet.id,
                       head = Bytes(packet.head.begin(), packet.head.end()), isIn,
                       size = packet.data.size()](std::int32_t status, ByteView answer) {
    const std::size_t sent = status == virtualhub::kUrbOk ? size : 0;
    const Bytes body = redirect::Answer(type, head, redirect::StatusOf(status),
                                        isIn ? answer.size() : sent, answer);
    return Encode(type, id, body, shared_);
  };
  const Transfer::Kind kind = KindOf(packet);
  return Submit({.id = {packet.id},
                 .kind = kind,
                 .report = report,
                 .setup = kind == Transfer::Kind::Control ? redirect::SetupOf(packet) : Bytes(),
                 .in = isIn,
                 .data = Bytes(packet.data.begin(), packet.data.end()),
                 .room = redirect::LengthOf(packet)});
}

}  // namespace qzhub
