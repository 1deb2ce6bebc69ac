// A machine with a hub that the library runs on, for one input.
#pragma once

#include "QzHidAPI.h"
#include "fuzz/fuzz.h"
#include "support/log_capture.h"
#include "virtualhub/bus/current_machine.h"

namespace qzhid::fuzz {

/// A hub named "hub" with all that can be attached to one. It runs ROM code, with next to no flash:
/// memory takes time.
inline virtualhub::Scenario HubScenario() {
  virtualhub::Scenario scenario;
  virtualhub::DeviceConfig& device = scenario.devices.emplace_back();
  device.name = "hub";
  device.port.ports = {3, 1};
  device.productText = "WQ HID Hub";
  device.hub.emplace();
  device.hub->bankSize = device.hub->bridgeFlash.size = 256;
  device.hub->i2cTargets[0x50] = virtualhub::EepromConfig{.size = 256};
  device.hub->i2cTargets[0x42] = virtualhub::BlockTargetConfig{.size = 256};
  return scenario;
}

/// Lists the hubs, of one filter if there is one, and checks the records.
inline std::vector<HidDevRecord> List(const std::uint32_t* vid = nullptr, std::uint32_t pid = 0) {
  HidDevRecord* list = nullptr;
  std::uint32_t count = 0;
  const bool isListed = vid == nullptr ? QZ_ListAllHidDev(&list, &count) == 1
                                       : QZ_ListAllHidDevByVIDPID(*vid, pid, &list, &count) == 1;
  std::vector<HidDevRecord> records(list, list + (isListed ? count : 0));
  QZ_FreeDevList(list);
  for (const HidDevRecord& record : records) {
    const auto last = QZ_RECORD_TEXT_UNITS - 1;
    Require(record.dwInst != 0 && record.Level > 0 && record.HwID[last] == 0 &&
                record.LocationPath[last] == 0 && record.VID[4] == 0 && record.PID[4] == 0,
            "records are complete");
  }
  return records;
}

/// The machine, with a receiver of what is logged. At its end the library is as in a fresh
/// process, and holds nothing any more.
class LibraryBench {
 public:
  explicit LibraryBench(const virtualhub::Scenario& scenario)
      : machine(virtualhub::InstallMachine(scenario)) {
    CMsg::Instance().AddResponder(&receiver_);
  }
  ~LibraryBench() {
    for (void* const handle : handles) QZ_CloseDev(handle);
    QZ_CloseDev(nullptr);
    QZ_ListAllHidDev(nullptr, nullptr);
    QZ_DllPassPara(0);
    QZ_ConfigLog(0, 0);
    using enum virtualhub::HandleKind;
    for (const auto kind : {HidDevice, Event, NodeSet, PreparsedData}) {
      Require(machine.openHandles(kind) == 0, "the library closes what it opens");
    }
    virtualhub::UninstallMachine();
  }
  void Open(std::uint32_t node) {
    if (void* const handle = QZ_OpenHid(node)) handles.push_back(handle);
  }
  void OpenAll() {
    for (const HidDevRecord& record : List()) Open(record.dwInst);
  }

  virtualhub::Machine& machine;
  std::vector<void*> handles;  ///< that were opened, closed ones too

 private:
  test::SilentReceiver receiver_;
};

}  // namespace qzhid::fuzz
