// The base of the two fixtures that serve almost all tests of the library: LayerTest
// (support/layer_test.h) for its layers and ApiTest (api/api_test.h) for its exports. Both run on a
// machine with a virtual clock: what a test installs is there at once and no test waits.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string>
#include <vector>

#include "QzHidAPI.h"
#include "support/bytes.h"
#include "support/faults.h"
#include "support/temp_file.h"
#include "test_system.h"
#include "virtualhub/bus/current_machine.h"

namespace qzhid::test {

/// A hub named "hub" at port 3.1 that runs firmware 1.02, and a keyboard; the machine records.
inline virtualhub::Scenario RecordedScenario() {
  virtualhub::Scenario scenario = virtualhub::DefaultScenario();
  scenario.record = true;
  return scenario;
}

/// A machine, and what the library logs on it. At the end the library is as in a fresh process.
class MachineTest : public ::testing::Test {
 protected:
  /// Replaces the machine, and forgets what was logged.
  void Install(const virtualhub::Scenario& scenario) {
    machine = &virtualhub::InstallMachine(scenario);
    log.Clear();
  }
  /// The same, recording.
  void InstallJson(const std::string& json) {
    virtualhub::Scenario scenario = virtualhub::ReadScenario(json);
    scenario.record = true;
    Install(scenario);
  }

  /// Forgets what was logged and recorded so far.
  void ClearRecords() {
    log.Clear();
    machine->recorder().Clear();
  }

  /// The lines that were logged under that tag, or all.
  std::vector<LogLine> Logged(const std::string& tag = "") const {
    std::vector<LogLine> lines = log.Lines();
    std::erase_if(lines, [&](const LogLine& line) { return !tag.empty() && line.tag != tag; });
    return lines;
  }
  /// How often exactly that line was logged.
  std::size_t Count(const LogLine& line) const {
    const std::vector<LogLine> lines = log.Lines();
    return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line));
  }

  /// The output reports on the wire so far, and the keys (type x 256 + request) of the requests.
  std::vector<Bytes> Outputs() const {
    std::vector<Bytes> reports;
    for (const auto& record : machine->recorder().Of(virtualhub::Record::Kind::Output)) {
      reports.push_back(record.data);
    }
    return reports;
  }
  std::vector<std::uint16_t> Keys() const { return machine->recorder().RequestKeys(); }

  /// How long the library slept each time, in milliseconds.
  std::vector<std::uint32_t> Pauses() const {
    std::vector<std::uint32_t> pauses;
    for (const auto& call : machine->recorder().Of(virtualhub::Record::Kind::Sleep))
      pauses.push_back(call.value);
    return pauses;
  }

  /// What the library holds open: devices, report events, node sets and parsed descriptors.
  std::vector<int> Handles() const {
    using enum virtualhub::HandleKind;
    return {machine->openHandles(HidDevice), machine->openHandles(Event),
            machine->openHandles(NodeSet), machine->openHandles(PreparsedData)};
  }

  /// At the end, after the log.
  struct FreshLibrary {
    ~FreshLibrary() {
      QZ_CloseDev(nullptr);
      QZ_DllPassPara(0);
      virtualhub::UninstallMachine();
    }
  } m_Fresh;
  virtualhub::Machine* machine = &virtualhub::InstallMachine(RecordedScenario());
  ExportLog log;
};

/// MachineTest::Handles() while nothing is open, and while one device is.
inline const std::vector<int> kNoHandles{0, 0, 0, 0}, kOneDevice{1, 1, 0, 0};

}  // namespace qzhid::test
