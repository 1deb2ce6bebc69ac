// Versions, ids and updates.
#include <ios>
#include <memory>

#include "QzHidAPI.h"
#include "api/export_frame.h"
#include "api/handle_table.h"
#include "api/pass_para.h"
#include "discovery/hid_find.h"
#include "firmware/fw_image.h"
#include "flow/universal_flow.h"
#include "log/dll_responder.h"
#include "log/msg.h"
#include "platform/scope_guard.h"
#include "transport/request_cmd.h"

using namespace qzhid;

namespace {

/// A flow on one device with a finder of its own. The device counts as gone, so that the flow's
/// first wait sees it arrive.
class CFlowJob {
 public:
  explicit CFlowJob(IDev& dev) : m_Flow(m_Finder, dev) {
    m_Finder.AddDev(&dev);
    m_Finder.DummyRemove(&dev);
  }
  CUniversalFlow& Flow() { return m_Flow; }

 private:
  CHidFind m_Finder;
  CUniversalFlow m_Flow;
};

/// Passes progress to the host. At 100 % the update is done with the hub, and the host can use it.
/// A callback in which the thread ended or was cancelled is not called again.
class CUpdateResponder final : public CDllResponder {
 public:
  using CDllResponder::CDllResponder;

  QZ_CATCHES_FORCED_UNWINDING void OnProgress(int value) override {
    if (m_bThreadEnds) return;
    if (value == 100) CCallGate::Instance().EndProtection();
    try {
      const platform::CCancellationWindow window;
      CDllResponder::OnProgress(value);
    } catch (const platform::ForcedUnwinding&) {
      m_bThreadEnds = true;
      throw;
    } catch (...) {
      m_bThreadEnds = platform::IsThreadEnding();
      throw;
    }
  }

 private:
  bool m_bThreadEnds = false;
};

/// Closes the handles that other threads wanted to close before the update returned.
void CloseDeferred() noexcept {
  while (void* const handle = CCallGate::Instance().TakeDeferredClose()) QZ_CloseDev(handle);
}

bool Refuse(const char* tag, const char* text) {
  CMsg::Instance().Log(3, tag, "%s", text);
  return false;
}

bool IsHandleGiven(const char* tag, const void* pDev) {
  return pDev != nullptr || Refuse(tag, "pDev is NULL\n");
}

bool DoesFileExist(const char* tag, const char* format, const char* path) {
  if (path != nullptr && platform::PathExists(path)) return true;
  CMsg::Instance().Log(3, tag, format, path != nullptr ? path : "(null)");
  return false;
}

bool DoesImageExist(const char* tag, const char* path) {
  return DoesFileExist(tag, "Fw File is Not Exist,FWPath:%s\n", path);
}

/// The device of a handle for the exports that read a version.
std::shared_ptr<CHidDev> FindReader(const char* tag, void* pDev, const std::uint16_t* pVersion) {
  if (pVersion == nullptr) {
    Refuse(tag, "Invalidate parameter\n");
    return nullptr;
  }
  auto dev = CHandleTable::Instance().FindHidDev(tag, pDev);
  if (dev) CMsg::Instance().Log(0, tag, "Hid Dev\n");
  return dev;
}

bool UpdateHub(const char* tag, void* pDev, const char* path, QZ_ProgressCallback callback) {
  if (!IsHandleGiven(tag, pDev)) return false;
  CUpdateResponder responder(callback);
  if (callback != nullptr) {
    CMsg::Instance().Log(3, tag, "Notify Progress\n");
    CMsg::Instance().AddResponder(&responder);
  }
  const platform::CScopeGuard removal([&] {
    if (callback != nullptr) CMsg::Instance().RemoveResponder(&responder);
  });
  if (!DoesImageExist(tag, path)) return false;
  const auto dev = CHandleTable::Instance().FindHidDev(tag, pDev);
  if (!dev) return false;
  CFlowJob job(*dev);
  job.Flow().InitFwFinder(path);  // the flow reports a missing image
  job.Flow().SetResetToFlash(PassPara() == 0);
  return job.Flow().DevUpdate() || Refuse(tag, "Update Fail\n");
}

bool ReadBinVersion(const char* tag, void* pDev, const char* path, std::uint16_t* pVersion) {
  if (!IsHandleGiven(tag, pDev) || !DoesImageExist(tag, path)) return false;
  const auto dev = FindReader(tag, pDev, pVersion);
  if (!dev) return false;
  CFlowJob job(*dev);
  job.Flow().InitFwFinder(path);
  return job.Flow().DevHidCmd(pVersion, kImageVersion) || Refuse(tag, "Read Bin Version Fail\n");
}

bool ReadDevVersion(const char* tag, void* pDev, std::uint16_t* pVersion) {
  if (!IsHandleGiven(tag, pDev)) return false;
  const auto dev = FindReader(tag, pDev, pVersion);
  if (!dev) return false;
  CFlowJob job(*dev);
  return job.Flow().DevReadVersion(pVersion) || Refuse(tag, "Read Dev Version Fail\n");
}

bool ReadFileIds(const char* tag, const char* path, std::uint32_t* pVID, std::uint32_t* pPID) {
  if (path == nullptr || pVID == nullptr || pPID == nullptr) {
    return Refuse(tag, "Invalidate parameter\n");
  }
  if (!DoesFileExist(tag, "Invalidate fw path,path:%s\n", path)) return false;
  FwBuffer image;
  if (!platform::ReadRegularFile(path, image))
    throw std::ios_base::failure("ios_base::failbit set");
  FwImageIds ids;
  if (!ReadImageIds(tag, image, ids)) return false;
  *pVID = ids.vid;
  *pPID = ids.hspid;
  CMsg::Instance().Log(0, tag, "VID:%04X,HSPID:%04X\n", ids.vid, ids.hspid);
  return true;
}

bool ReadHubIds(const char* tag, std::uint32_t devInst, std::uint32_t* pVID, std::uint32_t* pPID) {
  CMsg& msg = CMsg::Instance();
  if (pVID == nullptr || pPID == nullptr) return Refuse(tag, "Invalidate parameter\n");
  const std::unique_ptr<void, decltype(&QZ_CloseDev)> device(QZ_OpenHid(devInst), &QZ_CloseDev);
  if (!device) {
    msg.Log(3, tag, "Open hid device failed,DevInst:%d\n", static_cast<int>(devInst));
    return false;
  }
  StatusBlock status{};
  if (const auto result = CRequestCMD::Instance().Yv_Status(status.data()); result != 0) {
    msg.Log(3, tag, "Get status failed,Error Code:%d\n", static_cast<int>(result));
    return false;
  }
  *pVID = status[0] * 256u + status[1];
  *pPID = status[4] * 256u + status[5];
  msg.Log(0, tag, "Device VID/PID:%04X/%04X\n", *pVID, *pPID);
  return true;
}

uint8_t AsResult(bool isDone) { return isDone ? 1 : 0; }

}  // namespace

uint8_t QZ_UpdateDev(void* pDev, const char* path, QZ_ProgressCallback callback) {
  return Run({"QZ_UpdateDev", L"QZ UpdateDev", ConnectionUse::Update}, uint8_t{0},
             [&](const char* tag) {
               const platform::CScopeGuard closing(CloseDeferred);
               return AsResult(UpdateHub(tag, pDev, path, callback));
             });
}

uint8_t QZ_ReadBinVersion(void* pDev, const char* path, uint16_t* pVersion) {
  return Run({"QZ_ReadBinVersion", L"QZ_ReadBinVersion", ConnectionUse::TakeOver}, uint8_t{0},
             [&](const char* tag) { return AsResult(ReadBinVersion(tag, pDev, path, pVersion)); });
}

uint8_t QZ_ReadDevVersion(void* pDev, uint16_t* pVersion) {
  return Run({"QZ_ReadDevVersion", L"QZ_ReadDevVersion", ConnectionUse::TakeOver}, uint8_t{0},
             [&](const char* tag) { return AsResult(ReadDevVersion(tag, pDev, pVersion)); });
}

uint8_t QZ_GetHidBinFileVIDPID(const char* path, uint32_t* pVID, uint32_t* pPID) {
  return Run({"QZ_GetHidBinFileVIDPID", L"QZ_GetHidBinFileVIDPID"}, uint8_t{0},
             [&](const char* tag) { return AsResult(ReadFileIds(tag, path, pVID, pPID)); });
}

uint8_t QZ_GetHubVIDPIDFromHidDevice(uint32_t DevInst, uint32_t* pVID, uint32_t* pPID) {
  constexpr ExportCall kCall{"QZ_GetHubVIDPIDFromHidDevice", L"QZ_GetHubVIDPIDFromHidDevice",
                             ConnectionUse::TakeOver};
  return Run(kCall, uint8_t{0},
             [&](const char* tag) { return AsResult(ReadHubIds(tag, DevInst, pVID, pPID)); });
}
