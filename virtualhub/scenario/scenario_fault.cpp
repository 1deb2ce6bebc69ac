#include "virtualhub/scenario/scenario_fault.h"

#include <charconv>

#include "virtualhub/bus/port_path.h"

namespace virtualhub {

namespace {

using On = Fault::On;
using Action = Fault::Action;

bool ParseHexByte(std::string_view text, std::uint8_t& byte) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, byte, 16);
  return text.size() == 2 && error == std::errc() && stop == end;
}

void ReadRequestCode(const JsonReader& in, Fault& fault) {
  const std::string text = in.Text();
  const std::string_view view = text;
  if (view.size() != 5 || view[2] != '/' || !ParseHexByte(view.substr(0, 2), fault.requestType) ||
      !ParseHexByte(view.substr(3), fault.request)) {
    in.Fail("a request is written as type and code in hexadecimal, such as \"40/C8\"");
  }
}

Service ReadService(const JsonReader& in) {
  const std::string name = in.Text();
  const auto service = ServiceNamed(name);
  if (!service) in.Fail("there is no service \"" + name + "\"");
  return *service;
}

void ReadTrigger(const JsonReader& in, Fault& fault) {
  in.Member("on");
  in.Choice<On>("on", fault.on,
                {{"exchange", On::Exchange},
                 {"output", On::Output},
                 {"input", On::Input},
                 {"request", On::Request},
                 {"call", On::Call},
                 {"reset", On::Reset}});
  in.Number("nth", fault.nth, 1);
  in.Number("count", fault.count);
  in.Text("device", fault.device);
  if (fault.on == On::Request) ReadRequestCode(in.Member("request"), fault);
  if (fault.on == On::Call) fault.service = ReadService(in.Member("service"));
}

void ReadAction(const JsonReader& in, Fault& fault) {
  in.Member("action");
  in.Choice<Action>("action", fault.action,
                    {{"fail", Action::Fail},
                     {"stall", Action::Stall},
                     {"answer_zeros", Action::AnswerZeros},
                     {"answer_ones", Action::AnswerOnes},
                     {"answer_random", Action::AnswerRandom},
                     {"lose_write", Action::LoseWrite},
                     {"unplug", Action::Unplug},
                     {"power_loss", Action::PowerLoss},
                     {"hold", Action::Hold},
                     {"never_return", Action::NeverReturn},
                     {"return_at", Action::ReturnAt}});
}

bool TakesOff(Action action) { return action == Action::Unplug || action == Action::PowerLoss; }

// Whether an event of that kind can take that action.
bool Fits(On on, Action action) {
  if (action == Action::Hold) return true;
  switch (on) {
    case On::Reset:
      return action == Action::NeverReturn || action == Action::ReturnAt;
    case On::Call:
      return TakesOff(action) || action == Action::Fail || action == Action::Stall;
    default:
      return action != Action::NeverReturn && action != Action::ReturnAt;
  }
}

// When what a fault does is over, in milliseconds; none: never.
std::optional<std::uint32_t> ReadEnd(const JsonReader& in) {
  if (in.IsNull()) return std::nullopt;
  return static_cast<std::uint32_t>(in.Number(0, 0xFFFFFFFF));
}

// What the action needs to know.
void ReadDetails(const JsonReader& in, Fault& fault) {
  switch (fault.action) {
    case Action::Fail:
      fault.code = static_cast<std::uint32_t>(in.Member("code").Number(0, 0xFFFFFFFF));
      break;
    case Action::AnswerRandom:
      in.Number("seed", fault.seed);
      break;
    case Action::Unplug:
    case Action::PowerLoss:
      fault.returnMs = ReadEnd(in.Member("return_ms"));
      in.Text("port", fault.port);
      break;
    case Action::Hold:
      fault.releaseMs = ReadEnd(in.Member("release_ms"));
      break;
    case Action::ReturnAt:
      fault.port = in.Member("port").Text();
      break;
    default:
      break;
  }
  if (!fault.port.empty() && !PortPath::Parse(fault.port)) in.Member("port").Fail("not a port");
}

}  // namespace

Fault ReadFault(const JsonReader& in) {
  Fault fault;
  ReadTrigger(in, fault);
  ReadAction(in, fault);
  if (!Fits(fault.on, fault.action)) in.Fail("\"on\" and \"action\" do not go together");
  ReadDetails(in, fault);
  const bool actsOnDevice = TakesOff(fault.action) || fault.action == Action::Hold;
  if (actsOnDevice && fault.on == On::Call && fault.device.empty() &&
      !ConcernsDevice(*fault.service)) {
    in.Fail("\"device\" is missing: this service concerns no device");
  }
  return fault;
}

}  // namespace virtualhub
