// Machines to measure on, and the calls of the platform interface without the library.
#pragma once

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "rows.h"
#include "transport/hid_property.h"
#include "transport/hid_transfers.h"
#include "transport/request_cmd.h"
#include "virtualhub/bus/current_machine.h"

namespace qzhid::bench {

/// A scenario with one hub, "hub", that runs ROM code and has no image.
inline std::string HubScenario(unsigned latencyUs, unsigned bankSize) {
  char text[256];
  std::snprintf(text, sizeof(text),
                R"({"time": "%s", "devices": [{"name": "hub", "port": "3.1", "running": "rom",
                "image": null, "bank_size": %u, "timing": {"erase_ms": 0, "latency_us": %u}}]})",
                latencyUs == 0 ? "virtual" : "real", bankSize, latencyUs);
  return text;
}

/// A scenario with so many HID devices with the family's ids, "d0", "d1", ...
inline std::string DeviceScenario(unsigned count) {
  std::string devices;
  for (unsigned i = 0; i < count; ++i) {
    char text[160];
    std::snprintf(text, sizeof(text),
                  R"(%s{"name": "d%u", "kind": "other", "vid": "0x2E7C", "pid": "0x0818",
                  "port": "%u-%u.%u.%u"})",
                  i == 0 ? "" : ",", i, i / 1000 + 1, i / 100 % 10 + 1, i / 10 % 10 + 1,
                  i % 10 + 1);
    devices += text;
  }
  return R"({"time": "virtual", "devices": [)" + devices + "]}";
}

inline void Expect(bool isDone) {
  if (!isDone) Fail("a call of the platform failed");
}

/// Opens the node at that index of a new node set.
inline platform::HidDevice OpenNode(std::uint32_t index) {
  platform::NodeSet set;
  platform::DevInst node = 0;
  platform::DeviceInterface place;
  std::wstring path;
  platform::HidDevice device;
  Expect(platform::OpenNodeSet(platform::HidClassGuid(), set) &&
         platform::EnumNode(set, index, node) && platform::FirstInterface(set, index, place) &&
         platform::InterfacePath(set, place, path) && platform::OpenHidDevice(path, device));
  return device;
}

/// Makes all calls of a listing of devices that all have the family's ids.
void AskPlatform();

/// The property object and transfers of an update, with the only device of a new machine open.
class COpenHub {
 public:
  explicit COpenHub(const std::string& scenario) : m_Machine(virtualhub::InstallMachine(scenario)) {
    CRequestCMD::Instance().SetProperty(&m_Property);
    if (CRequestCMD::Instance().QZ_OpenDevice(m_Machine.HidInstance("hub")) != 0) Fail("no hub");
  }
  ~COpenHub() { CRequestCMD::Instance().SetProperty(nullptr); }
  COpenHub(const COpenHub&) = delete;
  COpenHub& operator=(const COpenHub&) = delete;

  virtualhub::Machine& Machine() { return m_Machine; }

 private:
  virtualhub::Machine& m_Machine;
  CHidProperty m_Property{std::make_unique<CHidTransfers>()};
};

/// The exchanges of some work, to be repeated without the library.
class CBareExchanges {
 public:
  /// Does the work once on the machine's only device, and records its exchanges.
  template <class Work>
  CBareExchanges(virtualhub::Machine& machine, const Work& work) : m_Device(OpenNode(0)) {
    using Kind = virtualhub::Record::Kind;
    machine.recorder().Start();
    work();
    machine.recorder().Stop();
    for (const auto& record : machine.recorder().all()) {
      const bool isReport = record.kind == Kind::Output || record.kind == Kind::Input;
      if (isReport) m_Exchanges.push_back({record.kind == Kind::Output, record.data});
    }
    machine.recorder().Clear();
  }

  void Run() {
    for (auto& [isOutput, report] : m_Exchanges) {
      const auto length = static_cast<std::uint32_t>(report.size());
      Expect(isOutput ? platform::SetOutputReport(m_Device, report.data(), length).ok
                      : platform::GetInputReport(m_Device, report.data(), length).ok);
    }
  }
  std::size_t Count() const { return m_Exchanges.size(); }

 private:
  struct Exchange {
    bool isOutput;
    virtualhub::Bytes report;
  };
  platform::HidDevice m_Device;
  std::vector<Exchange> m_Exchanges;
};

}  // namespace qzhid::bench
