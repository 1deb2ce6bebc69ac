// Opening and closing of the device.
#include "transport/hid_transfers.h"

#include <atomic>

#include "log/msg.h"

namespace qzhid {

namespace {

/// The node's index in the set; no such node is a failure. The search starts at `index` and wraps
/// around, so that opening all nodes of a set in turn takes the same time for each of them.
bool FindNode(const platform::NodeSet& set, platform::DevInst wanted, std::uint32_t& index) {
  const std::uint32_t first = index;
  platform::DevInst devInst = 0;
  for (; platform::EnumNode(set, index, devInst); ++index) {
    if (devInst == wanted) return true;
  }
  for (index = 0; index < first && platform::EnumNode(set, index, devInst); ++index) {
    if (devInst == wanted) return true;
  }
  return false;
}

}  // namespace

std::uint32_t CHidTransfers::Yv_OpenDeviceByDevInst(std::uint32_t devInst) {
  if (devInst == 0) return kRefused;
  std::uint32_t result = OpenInterface(devInst);
  if (result == 0) result = ReadReportLengths();
  if (result == 0) result = Identify(devInst);
  if (result == 0) LogRemarkOnce(devInst);
  return result;
}

std::uint32_t CHidTransfers::Yv_CloseDevice() {
  m_Device.reset();
  m_ReportEvent.reset();
  return 0;
}

std::uint32_t CHidTransfers::OpenInterface(std::uint32_t devInst) {
  platform::NodeSet set;
  if (!platform::OpenNodeSet(platform::HidClassGuid(), set)) return kRefused;
  if (!FindNode(set, devInst, m_nLastIndex)) return kRefused;

  platform::DeviceInterface deviceInterface;
  if (const auto status = platform::FirstInterface(set, m_nLastIndex, deviceInterface); !status) {
    CMsg::Instance().Log(3, kOpenTag, L"SetupDiEnumDeviceInterfaces FAIL,ErrorCode is %08x\n",
                         status.code);
    return ErrorOf(status);
  }
  std::wstring path;
  if (const auto status = platform::InterfacePath(set, deviceInterface, path); !status) {
    CMsg::Instance().Log(3, kOpenTag, L"SetupDiGetDeviceInterfaceDetail FAIL,ErrorCode is %08x\n",
                         status.code);
    return ErrorOf(status);
  }
  return OpenPath(path);
}

std::uint32_t CHidTransfers::OpenPath(const std::wstring& path) {
  m_OpenStatus = platform::OpenHidDevice(path, m_Device);
  if (!m_OpenStatus) {
    CMsg::Instance().Log(3, kOpenTag, "CreateFile failed,ErrorCode is %08x\n", m_OpenStatus.code);
    LogRemark(m_OpenStatus);
    return ErrorOf(m_OpenStatus);
  }
  if (const auto status = platform::CreateReportEvent(m_ReportEvent); !status) {
    CMsg::Instance().Log(3, kOpenTag, L"Create Event failed.Error Code is %d\n", status.code);
    m_Device.reset();
    return ErrorOf(status);
  }
  return 0;
}

void CHidTransfers::LogRemarkOnce(std::uint32_t devInst) {
  // Scans open the same devices again and again, and this object lives for one scan. On systems
  // with remarks, devices that arrive later have higher numbers.
  static std::atomic<std::uint32_t> last{0};
  if (m_OpenStatus.remark.empty() || devInst <= last || !CMsg::Instance().IsHeard()) return;
  last = devInst;
  LogRemark(m_OpenStatus);
}

void CHidTransfers::LogRemark(const platform::OpenStatus& status) {
  if (status.remark.empty()) return;
  CMsg::Instance().Log(3, kOpenTag, "%s\n", status.remark.c_str());
}

std::uint32_t CHidTransfers::ReadReportLengths() {
  platform::PreparsedData preparsed;
  if (const auto status = platform::GetPreparsedData(m_Device, preparsed); !status) {
    CMsg::Instance().Log(3, kOpenTag, "HidD_GetPreparsedData failed,ErrorCode:%d\n",
                         static_cast<int>(status.code));
    return ErrorOf(status);
  }
  platform::HidCaps caps;
  if (const auto status = platform::GetCaps(preparsed, caps); !status) {
    CMsg::Instance().Log(3, kOpenTag, "HidP_GetCaps failed,Error Code is %d\n",
                         static_cast<int>(status.code));
    return ErrorOf(status);
  }
  m_Reports.SetLengths(caps);
  return 0;
}

}  // namespace qzhid
