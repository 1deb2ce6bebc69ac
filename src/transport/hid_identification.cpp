// Whether an opened HID device is one that this library may drive.
#include <algorithm>

#include "log/msg.h"
#include "platform/ascii.h"
#include "platform/library_folder.h"
#include "transport/hid_transfers.h"

namespace qzhid {

namespace {

constexpr std::uint32_t kFamilyVendorId = 0x2E7C;
constexpr std::size_t kDeviceIdCapacity = 1024;
constexpr std::uint32_t kProductTextIndex = 52;
constexpr const wchar_t* kProductText = L"WQ HID";
constexpr const char* kIdListName = "VidPid.ini";

}  // namespace

std::uint32_t CHidTransfers::Identify(std::uint32_t devInst) {
  std::string idList;
  if (const auto status = PathBesideLibrary(kIdListName, idList); !status) {
    CMsg::Instance().Log(3, kOpenTag, "Get Dll Path Fail\n");
    return ErrorOf(status);
  }
  std::string deviceId;
  if (const auto status = platform::GetDeviceIdA(devInst, kDeviceIdCapacity, deviceId); !status) {
    CMsg::Instance().Log(3, kOpenTag, "CM_Get_Device_IDA Fail\n");
    return ErrorOf(status);
  }
  UpperCase(deviceId);
  const std::uint32_t pid = HexAfter(deviceId, "PID_");
  const std::uint32_t vid = HexAfter(deviceId, "VID_");
  CMsg::Instance().Log(0, kOpenTag, "DevInst:%d,VID/PID:0x%04x/0x%04x\n", static_cast<int>(devInst),
                       vid, pid);
  if (vid == kFamilyVendorId) return 0;
  if (GetVidPidList(idList) == 0) return IdentifyByProductText();
  const bool isListed = std::find(m_AcceptedIds.begin(), m_AcceptedIds.end(),
                                  VidPidList::value_type{vid, pid}) != m_AcceptedIds.end();
  return isListed ? 0 : kRefused;
}

std::uint32_t CHidTransfers::IdentifyByProductText() {
  std::wstring text;
  const auto status =
      platform::GetIndexedString(m_Device, kProductTextIndex, m_Reports.InputLength(), text);
  if (!status) {
    CMsg::Instance().Log(3, kOpenTag, "HidD_GetIndexedString failed,Error Code:%d\n",
                         static_cast<int>(status.code));
    LogRemark(status);
    return ErrorOf(status);
  }
  return text.find(kProductText) != std::wstring::npos ? 0 : kRefused;
}

std::uint32_t CHidTransfers::GetVidPidList(const std::string& path) {
  if (!platform::PathExists(path.c_str())) return 0;
  if (!ReadVidPidList(path, m_AcceptedIds)) {
    CMsg::Instance().Log(3, "CHidTransfers::GetVidPidList", "File is not exist,strPath is %s\n",
                         path.c_str());
    return 0;
  }
  return m_AcceptedIds.empty() ? 0 : 1;
}

}  // namespace qzhid
