// How a report gets to its device and back.
#include <iostream>

#include "virtualhub/bus/machine.h"

namespace virtualhub {

template <typename Begin, typename Deliver>
Result Machine::RunExchange(bool output, const HidNode& node, ByteView report, Begin begin,
                            Deliver deliver) {
  Exchange exchange{0, output, node.number, report};
  std::shared_ptr<const ExchangeHook> hook;
  std::uint64_t latencyUs = 0;
  bool present = false;
  UsbCapture::Transfer transfer;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    CatchUp();
    exchange.number = ++exchanges_;
    hook = hook_;
    const Device* device = OfHidNode(node);
    present = device != nullptr;
    if (present && device->hub) latencyUs = device->hub->timing().latencyUs;
    if (present && device->replay) latencyUs = device->replay->NextUs();
    if (capture_) transfer = begin();
  }
  clock_.SleepUs(latencyUs);
  if (hook) (*hook)(exchange);

  Effects effects;
  Result result;
  ByteView input;
  {
    const std::lock_guard<std::mutex> guard(mutex_);
    CatchUp();
    Device* device = OfHidNode(node);
    if (device == nullptr) {
      result = {present ? Error::CutOff : Error::Gone};
    } else {
      const Fault* fault = faults_.Strike(
          {.on = output ? Fault::On::Output : Fault::On::Input, .device = device->config.name});
      if (const auto prevented = Prevent(fault, *device)) {
        result = *prevented;
      } else if (node.number != device->nodes.hid) {
        result = {Error::Stall};
      } else {
        result = deliver(*device, fault, effects);
      }
    }
    RecordReport(output ? Record::Kind::Output : Record::Kind::Input, node.number, report, result);
    if (!output && device != nullptr) {
      input =
          report.first(std::min<std::size_t>(device->config.reports.inputLength, report.size()));
    }
  }
  clock_.SleepUs(effects.delayMs * kUsPerMs);
  if (capture_) {
    const std::lock_guard<std::mutex> guard(mutex_);
    capture_->End(transfer, result, input);
  }
  return result;
}

Result Machine::SetOutputReport(const HidNode& node, ByteView report, OutputPipe pipe) {
  return RunExchange(
      true, node, report, [&] { return capture_->BeginOutput(node, pipe, report); },
      [&](Device& device, const Fault* fault, Effects& effects) {
        return DeliverOutput(device, fault, report, effects);
      });
}

Result Machine::GetInputReport(const HidNode& node, MutableBytes report) {
  return RunExchange(
      false, node, report, [&] { return capture_->BeginInput(node, report); },
      [&](Device& device, const Fault* fault, Effects&) {
        return DeliverInput(device, fault, report);
      });
}

// The result of an exchange that a fault keeps from happening; none when it happens.
std::optional<Result> Machine::Prevent(const Fault* fault, Device& device) {
  if (fault == nullptr) return std::nullopt;
  if (fault->action == Fault::Action::Fail) return Result{Error::SystemCode, fault->code};
  if (fault->action == Fault::Action::Stall) return Result{Error::Stall};
  if (StrikeDevice(*fault, &device)) return Result{Error::CutOff};
  return std::nullopt;
}

Result Machine::DeliverOutput(Device& device, const Fault* fault, ByteView report,
                              Effects& effects) {
  if (double_) return double_->take(report);
  VendorRequest request;
  const Result decoded = device.channel.Decode(report, request);
  if (!decoded.ok()) {
    return device.replay ? Repeat(device, device.replay->Output(report)) : decoded;
  }
  const DevInst node = device.nodes.hid;
  const Result result = CarryOut(device, fault, request, report, effects);
  RecordRequest(node, request, result);
  return result;
}

Result Machine::CarryOut(Device& device, const Fault* fault, const VendorRequest& request,
                         ByteView report, Effects& effects) {
  const Fault* requestFault = faults_.Strike({.on = Fault::On::Request,
                                              .device = device.config.name,
                                              .requestType = request.type(),
                                              .request = request.request()});
  if (const auto prevented = Prevent(requestFault, device)) return *prevented;
  if (device.replay) return Repeat(device, device.replay->Output(report));
  if (!device.hub || clock_.NowUs() < device.readyAtUs) return {Error::Stall};
  if (requestFault != nullptr) fault = requestFault;

  MutableBytes answer;
  if (request.IsIn()) {
    answer = device.channel.PrepareAnswer(request.length());
  } else if (fault != nullptr && fault->action == Fault::Action::LoseWrite) {
    return {};
  }
  const Result result = device.hub->Execute(request, answer, effects);
  if (!result.ok()) device.channel.DropAnswer();
  if (fault != nullptr) Garble(*fault, answer);
  if (effects.reset) {
    const HubTiming& timing = device.hub->timing();
    StartReset(device, timing.leaveMs * kUsPerMs, timing.returnMs * kUsPerMs);
  }
  if (effects.save) SaveState(device);
  return result;
}

// After an exchange of a device out of a capture.
Result Machine::Repeat(Device& device, const Result& result) {
  if (const std::string& difference = device.replay->difference(); !difference.empty()) {
    // In one piece, among what other processes write.
    std::cerr << "virtualhub: " + device.config.name + ": " + difference + '\n' << std::flush;
    if (recorder_.IsOn()) {
      recorder_.Add({.kind = Record::Kind::Differs,
                     .timeUs = clock_.NowUs(),
                     .instance = device.nodes.hid,
                     .text = difference});
    }
  }
  if (device.replay->IsStayOver() && !device.leaveAtUs) {
    // When a hub leaves is not in a capture, unless it leaves in the middle of an exchange.
    constexpr std::uint64_t kUsualLeaveUs = HubTiming().leaveMs * kUsPerMs;
    const auto away = device.replay->AwayUs();
    const bool isCutOff = result.error == Error::CutOff;
    const std::uint64_t leave =
        isCutOff ? 0 : std::min(kUsualLeaveUs, away.value_or(kUsualLeaveUs * 2) / 2);
    StartReset(device, leave, away.value_or(0) - leave);
    if (!away) device.returnAtUs.reset();
  }
  return result;
}

Result Machine::DeliverInput(Device& device, const Fault* fault, MutableBytes report) {
  if (double_) return double_->answer(report);
  if (device.replay) return Repeat(device, device.replay->Input(report));
  if (!device.hub || clock_.NowUs() < device.readyAtUs) return {Error::Stall};
  const Result result = device.channel.Encode(report);
  if (result.ok() && fault != nullptr) {
    Garble(*fault, report.subspan(1, std::size_t{device.config.reports.inputLength} - 1));
  }
  return result;
}

void Machine::RecordReport(Record::Kind kind, DevInst node, ByteView report, const Result& result) {
  if (!recorder_.IsOn()) return;
  recorder_.Add({.kind = kind,
                 .timeUs = clock_.NowUs(),
                 .instance = node,
                 .data = Bytes(report.begin(), report.end()),
                 .result = result});
}

void Machine::RecordRequest(DevInst node, const VendorRequest& request, const Result& result) {
  if (!recorder_.IsOn()) return;
  Record record{
      .kind = Record::Kind::Request, .timeUs = clock_.NowUs(), .instance = node, .result = result};
  std::copy_n(request.header.begin(), record.setup.size(), record.setup.begin());
  record.data.assign(request.data().begin(), request.data().end());
  recorder_.Add(std::move(record));
}

}  // namespace virtualhub
