#include "virtualhub/bus/faults.h"

#include <algorithm>

namespace virtualhub {

namespace {

bool Watches(const Fault& fault, const FaultEvent& event) {
  if (!fault.device.empty() && !event.device.empty() && fault.device != event.device) return false;
  const bool exchange = event.on == Fault::On::Output || event.on == Fault::On::Input;
  if (fault.on == Fault::On::Exchange) return exchange;
  if (fault.on != event.on) return false;
  switch (fault.on) {
    case Fault::On::Request:
      return fault.requestType == event.requestType && fault.request == event.request;
    case Fault::On::Call:
      return fault.service == event.service;
    default:
      return true;
  }
}

}  // namespace

const Fault* Faults::Strike(const FaultEvent& event) {
  const Fault* striking = nullptr;
  for (Watched& watched : watched_) {
    const Fault& fault = watched.fault;
    if (!Watches(fault, event)) continue;
    ++watched.seen;
    const bool due = watched.seen >= fault.nth;
    const bool over = fault.count != 0 && watched.seen - fault.nth >= fault.count;
    if (striking == nullptr && due && !over) striking = &fault;
  }
  return striking;
}

void Garble(const Fault& fault, MutableBytes data) {
  std::uint32_t state = fault.seed;
  switch (fault.action) {
    case Fault::Action::AnswerZeros:
      std::fill(data.begin(), data.end(), std::uint8_t{0x00});
      break;
    case Fault::Action::AnswerOnes:
      std::fill(data.begin(), data.end(), std::uint8_t{0xFF});
      break;
    case Fault::Action::AnswerRandom:
      for (std::uint8_t& byte : data) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<std::uint8_t>(state >> 24);
      }
      break;
    default:
      break;
  }
}

}  // namespace virtualhub
