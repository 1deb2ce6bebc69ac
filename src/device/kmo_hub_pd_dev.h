// The generic hub device: state, firmware image, identity, code-mode detection.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "device/dev.h"
#include "device/states.h"

namespace qzhid {

class CKmoHubPDDev : public IDev {
 public:
  CKmoHubPDDev();

  void SetState(CState* state) override { m_pCurState = state; }
  CState* GetState() override { return m_pCurState; }
  CState* GetStateById(int id) override;

  IFwFinder* GetFwFinder() override { return m_pFwFinder.get(); }
  void InitFwFinder(const char* path) override;

  void AddVidPid(std::uint32_t first, std::uint32_t second) override;
  void RemoveVidPid(std::uint32_t first, std::uint32_t second) override;
  bool GetVidPid(std::uint32_t& first, std::uint32_t& second, std::size_t index) override;
  void SetTopology(const std::wstring& topology) override { m_strTopology = topology; }
  void SetPosition(std::uint32_t pos1, std::uint32_t pos2) override;
  std::wstring GetTopology() override { return m_strTopology; }
  std::uint32_t GetPos1() override { return m_nPos1; }
  std::uint32_t GetPos2() override { return m_nPos2; }

  bool Reset2Rom() override;
  bool Reset2Flash() override;
  bool WriteFlash() override;
  bool CheckFlash() override;
  bool DevReadVersion(std::uint16_t* version) override;
  bool DveGetICStatus(std::uint8_t* status) override;
  bool DevErase() override;
  bool IsConnected() override;
  bool IsOffline() override;

  bool ForceReset2Rom() override { return Reset2RomEx(); }
  bool JudgeCodeMode(IDev* dev) override;
  void ForceRemove() override;

  // What the states call once they allow an operation.
  virtual bool IsDualBank() = 0;
  /// 0: ROM code runs; 1: flash code runs; -1: no answer.
  virtual std::int32_t IsRomCode() = 0;
  virtual bool CanReset() = 0;
  virtual bool Reset2RomEx() = 0;
  virtual bool Reset2FlashEx() = 0;
  virtual bool WriteFlashEx(const FwBuffer& image) = 0;
  /// Reads as many bytes as the firmware buffer holds; a shorter `buffer` grows to that size.
  virtual bool ReadFlash(FwBuffer& buffer) = 0;
  /// Reads the flash back and compares it with the firmware buffer. True also when the read
  /// succeeded and the contents differ.
  virtual bool CheckFlashWithCmp();
  virtual bool CheckFlashWithISP() = 0;
  virtual bool ReadVersion(std::uint16_t* version) = 0;
  virtual bool GetICStatus(std::uint8_t* status) = 0;
  virtual bool EraseFlash() = 0;
  virtual bool VdCmdEnable(std::uint8_t value) = 0;

 protected:
  /// Logs the name of the current state.
  void LogState(const char* tag) const;
  const char* StateName() const;

  CState* m_pCurState = nullptr;  // owned by the table
  std::uint32_t m_DevInst = 0;    // 0 while the device is away
  std::uint32_t m_nDevVid = 0;
  std::uint32_t m_nDevPid = 0;

 private:
  using VidPid = std::pair<std::uint32_t, std::uint32_t>;

  StateTable m_StateTable;
  std::unique_ptr<IFwFinder> m_pFwFinder;
  std::vector<VidPid> m_VidPidList;
  std::uint32_t m_nPos1 = 1;
  std::uint32_t m_nPos2 = 0;
  std::wstring m_strTopology;
};

}  // namespace qzhid
