// The frame of tests of the library's parts on the virtual hub.
#pragma once

#include <memory>

#include "support/log_capture.h"
#include "support/machine_test.h"
#include "transport/hid_property.h"
#include "transport/hid_transfers.h"
#include "transport/request_cmd.h"

namespace qzhid::test {

/// A machine, and what the library logs.
class LibraryTest : public MachineTest {
 protected:
  /// Forgets what was logged and recorded so far.
  void ClearRecords() {
    log.Clear();
    machine->recorder().Clear();
  }

  LogCapture log;
};

/// The same with the hub open below the exports: request layer, property object and transfers.
class OpenTransportTest : public LibraryTest {
 protected:
  OpenTransportTest() { OpenHub(RecordedScenario()); }
  ~OpenTransportTest() override { CRequestCMD::Instance().SetProperty(nullptr); }

  /// Opens the device "hub" of a new machine as QZ_OpenHid does, without the device object.
  void OpenHub(const virtualhub::Scenario& scenario) {
    CRequestCMD::Instance().SetProperty(nullptr);
    property.reset();
    Install(scenario);
    auto owned = std::make_unique<CHidTransfers>();
    transfers = owned.get();
    property = std::make_unique<CHidProperty>(std::move(owned));
    CRequestCMD::Instance().SetProperty(property.get());
    EXPECT_EQ(0u, CRequestCMD::Instance().QZ_OpenDevice(machine->HidInstance("hub")));
    ClearRecords();
  }

  CHidTransfers* transfers = nullptr;
  std::unique_ptr<CHidProperty> property;
};

}  // namespace qzhid::test
