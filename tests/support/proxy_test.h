// The frame of tests below the exports that open devices themselves.
#pragma once

#include <memory>
#include <sstream>

#include "support/library_test.h"

namespace qzhid::test {

using virtualhub::Fault;
using virtualhub::Service;

/// A property object is installed and has nothing open.
class ProxyTest : public LibraryTest {
 protected:
  ProxyTest() { CRequestCMD::Instance().SetProperty(&property); }
  ~ProxyTest() override { CRequestCMD::Instance().SetProperty(nullptr); }

  /// Installs the machine of a JSON scenario, recording.
  void InstallJson(const std::string& json) {
    virtualhub::Scenario scenario = virtualhub::ReadScenario(json);
    scenario.record = true;
    Install(scenario);
    ClearRecords();
  }

  /// How long the library slept each time, in milliseconds.
  std::vector<std::uint32_t> Pauses() const {
    std::vector<std::uint32_t> pauses;
    for (const auto& call : machine->recorder().Of(virtualhub::Record::Kind::Sleep))
      pauses.push_back(call.value);
    return pauses;
  }
  /// The whole log, each line as "level tag: text".
  std::string Told() const {
    std::ostringstream text;
    for (const LogLine& line : log.lines) text << line;
    return text.str();
  }
  int OpenDevices() const { return machine->openHandles(virtualhub::HandleKind::HidDevice); }

  CHidProperty property{std::make_unique<CHidTransfers>()};
};

/// Calls of a platform service fail with code 13, from the n-th on, `count` of them.
inline Fault FailingCall(Service service, std::uint32_t nth = 1, std::uint32_t count = 1) {
  return {.on = Fault::On::Call, .service = service, .nth = nth, .count = count, .code = 13};
}

/// A vendor request (type x 256 + request) is met by an action, at the n-th time and on, `count`
/// times.
inline Fault RequestFault(std::uint16_t key, std::uint32_t nth = 1, std::uint32_t count = 1,
                          Fault::Action action = Fault::Action::Stall) {
  return {.on = Fault::On::Request,
          .requestType = static_cast<std::uint8_t>(key >> 8),
          .request = static_cast<std::uint8_t>(key),
          .nth = nth,
          .count = count,
          .action = action};
}

}  // namespace qzhid::test
