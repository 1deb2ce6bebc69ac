// A machine with one hub that the library runs on, for one input.
#pragma once

#include <cstring>
#include <vector>

#include "QzHidAPI.h"
#include "fuzz/fuzz.h"
#include "log/msg.h"
#include "virtualhub/current_world.h"
#include "virtualhub/image.h"

namespace qzhid::fuzz {

/// A hub with all that there can be behind one, named "hub". It runs ROM code, with next to no
/// flash: memory takes time.
inline virtualhub::DeviceConfig HubDevice() {
  virtualhub::DeviceConfig device{.name = "hub", .port = {1, {3, 1}}, .productText = "WQ HID Hub"};
  device.hub = virtualhub::HubConfig{.bankSize = 256, .bridgeFlash = {.size = 256}};
  device.hub->i2cTargets[0x50] = virtualhub::EepromConfig{.size = 256};
  device.hub->i2cTargets[0x42] = virtualhub::BlockTargetConfig{.size = 256};
  return device;
}

/// An image that hubs accept. Without seal, so that no checksum takes up the time.
inline const Bytes& GoodImage() {
  static const Bytes image = [] {
    Bytes bytes = virtualhub::BuildImage({}, virtualhub::kIdentityEnd);
    std::fill_n(bytes.begin() + 0x7F80, 16, std::uint8_t{0});
    return bytes;
  }();
  return image;
}

/// Takes all that is logged, so that it is formatted.
class LogSink final : public IResponder {
 public:
  void OnLog(const char* line, int) override { Require(std::strlen(line) > 0, "lines have text"); }
  void OnPrint(const char*, int) override {}
  void OnNotify(const char*, int, int) override {}
  void OnProgress(int percent) override {
    Require(percent >= 0 && percent <= 100, "progress is a percentage");
  }
  void SetLevel(int) override {}
};

/// The machine; at its end the library is as in a fresh process, and holds nothing any more.
class Machine {
 public:
  explicit Machine(const virtualhub::Scenario& scenario)
      : world(virtualhub::InstallWorld(scenario)) {
    CMsg::Instance().AddResponder(&sink_);
  }
  ~Machine() {
    for (void* const handle : handles) QZ_CloseDev(handle);
    QZ_CloseDev(nullptr);
    QZ_ListAllHidDev(nullptr, nullptr);
    QZ_DllPassPara(0);
    QZ_ConfigLog(0, 0);
    using enum virtualhub::HandleKind;
    for (const auto kind : {HidDevice, Event, NodeSet, PreparsedData}) {
      Require(world.openHandles(kind) == 0, "the library closes what it opens");
    }
    virtualhub::UninstallWorld();
  }
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  virtualhub::World& world;
  std::vector<void*> handles;  ///< that were opened, closed ones too

 private:
  LogSink sink_;
};

/// Lists the hubs, of one filter if there is one, and checks the records.
inline std::vector<HidDevRecord> List(const std::uint32_t* vid = nullptr, std::uint32_t pid = 0) {
  HidDevRecord* list = nullptr;
  std::uint32_t count = 0;
  const bool isListed = vid == nullptr ? QZ_ListAllHidDev(&list, &count) == 1
                                       : QZ_ListAllHidDevByVIDPID(*vid, pid, &list, &count) == 1;
  std::vector<HidDevRecord> records;
  if (isListed) records.assign(list, list + count);
  Require(isListed == (list != nullptr) && isListed == !records.empty(), "a list has records");
  QZ_FreeDevList(list);
  for (const HidDevRecord& record : records) {
    Require(record.dwInst != 0 && record.dwDevType == QZ_DEVICE_TYPE_HID && record.Level > 0 &&
                record.HwID[QZ_RECORD_TEXT_UNITS - 1] == 0 && record.VID[4] == 0 &&
                record.LocationPath[QZ_RECORD_TEXT_UNITS - 1] == 0 && record.PID[4] == 0,
            "records are complete");
  }
  return records;
}

}  // namespace qzhid::fuzz
