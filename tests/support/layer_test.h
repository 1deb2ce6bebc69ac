// The fixture of the tests of the library's layers, below its exports.
#pragma once

#include <memory>
#include <utility>

#include "support/machine_test.h"
#include "transport/hid_property.h"
#include "transport/hid_transfers.h"
#include "transport/request_cmd.h"

namespace qzhid::test {

/// A machine with the library's layers on it. No device is open at first.
class LayerTest : public MachineTest {
 protected:
  LayerTest() {
    NewProperty();
    log.Clear();  // the first object of a process says what it runs on
  }
  ~LayerTest() override { requests.SetProperty(nullptr); }

  /// Opens the device "hub" as QZ_OpenHid does, without the device object; forgets the records.
  void OpenHub() {
    EXPECT_EQ(0u, requests.QZ_OpenDevice(machine->HidInstance("hub")));
    ClearRecords();
  }
  /// The same on a new machine, with a new property object.
  void OpenHub(const virtualhub::Scenario& scenario) {
    Install(scenario);
    NewProperty();
    OpenHub();
  }

  /// The lines of level 3.
  std::vector<LogLine> Failures() const {
    std::vector<LogLine> lines = log.Lines();
    std::erase_if(lines, [](const LogLine& line) { return line.level < 3; });
    return lines;
  }

  CRequestCMD& requests = CRequestCMD::Instance();
  CHidTransfers* transfers = nullptr;
  std::unique_ptr<CHidProperty> property;

 private:
  void NewProperty() {
    auto owned = std::make_unique<CHidTransfers>();
    transfers = owned.get();
    property = std::make_unique<CHidProperty>(std::move(owned));
    requests.SetProperty(property.get());
  }
};

}  // namespace qzhid::test
