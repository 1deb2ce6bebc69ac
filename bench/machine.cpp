#include "machine.h"

#include "rows.h"
#include "transport/hid_transfers.h"
#include "transport/request_cmd.h"

namespace qzhid::bench {

std::string HubScenario(std::uint32_t latencyUs, std::uint32_t bankSize) {
  return std::string(R"({"time": ")") + (latencyUs == 0 ? "virtual" : "real") +
         R"(", "devices": [{"name": "hub", "port": "3.1", "running": "rom", "image": null,
         "bank_size": )" +
         std::to_string(bankSize) + R"(, "timing": {"erase_ms": 0, "latency_us": )" +
         std::to_string(latencyUs) + "}}]}";
}

std::string DeviceScenario(std::uint32_t count) {
  constexpr std::uint32_t kPorts = 10;  // of a hub; the levels above hold the rest
  std::string devices;
  for (std::uint32_t i = 0; i < count; ++i) {
    std::string port = std::to_string(i % kPorts + 1);
    port = std::to_string(i / kPorts % kPorts + 1) + '.' + port;
    port = std::to_string(i / kPorts / kPorts % kPorts + 1) + '.' + port;
    port = std::to_string(i / kPorts / kPorts / kPorts + 1) + '-' + port;
    devices += (i == 0 ? "" : ",") + (R"({"name": "d)" + std::to_string(i)) +
               R"(", "kind": "other", "vid": "0x2E7C", "pid": "0x0818", "port": ")" + port + "\"}";
  }
  return R"({"time": "virtual", "devices": [)" + devices + "]}";
}

COpenHub::COpenHub(const std::string& scenario)
    : m_World(virtualhub::InstallWorld(scenario)),
      m_pProperty(std::make_unique<CHidProperty>(std::make_unique<CHidTransfers>())) {
  CRequestCMD& request = CRequestCMD::Instance();
  request.SetProperty(m_pProperty.get());
  if (request.QZ_OpenDevice(m_World.HidInstance("hub")) != 0) Fail("the hub does not open");
}

COpenHub::~COpenHub() {
  CRequestCMD::Instance().SetProperty(nullptr);
  m_pProperty.reset();
  virtualhub::UninstallWorld();
}

void CBareExchanges::Take(virtualhub::World& world) {
  using Kind = virtualhub::Record::Kind;
  for (const auto& record : world.recorder().all()) {
    if (record.kind == Kind::Output || record.kind == Kind::Input) {
      m_Exchanges.push_back({record.kind == Kind::Output, record.data});
    }
  }
  world.recorder().Clear();
  m_Device = OpenNode(world.HidInstance("hub"));
}

void CBareExchanges::Run() {
  for (Exchange& exchange : m_Exchanges) {
    const auto length = static_cast<std::uint32_t>(exchange.report.size());
    std::uint8_t* const report = exchange.report.data();
    const bool isDone = exchange.isOutput ? platform::SetOutputReport(m_Device, report, length).ok
                                          : platform::GetInputReport(m_Device, report, length).ok;
    if (!isDone) Fail("a bare exchange failed");
  }
}

platform::HidDevice OpenNode(platform::DevInst node) {
  platform::NodeSet set;
  platform::DevInst found = 0;
  platform::HidDevice device;
  std::wstring path;
  if (!platform::OpenNodeSet(platform::HidClassGuid(), set)) Fail("no nodes");
  for (std::uint32_t index = 0; platform::EnumNode(set, index, found); ++index) {
    platform::DeviceInterface place;
    if (found == node && platform::FirstInterface(set, index, place) &&
        platform::InterfacePath(set, place, path) && platform::OpenHidDevice(path, device)) {
      return device;
    }
  }
  Fail("a node does not open");
}

}  // namespace qzhid::bench
