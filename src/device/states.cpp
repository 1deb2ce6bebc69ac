#include "device/states.h"

#include "device/kmo_hub_pd_dev.h"
#include "log/msg.h"

namespace qzhid {

namespace {

/// Ignores every event; the states below handle those that concern them.
class CPassiveState : public CState {
 public:
  using CState::CState;
  bool OnArrive() override { return false; }
  bool OnRemove() override { return false; }
  bool OnRomCode() override { return false; }
  bool OnFlashCode() override { return false; }
  bool OnReset() override { return false; }
  bool IsConnected() override { return true; }
  bool IsOffline() override { return false; }

 protected:
  bool MoveTo(int id) {
    m_pDev->SetState(m_pDev->GetStateById(id));
    return true;
  }
};

/// Refuses every operation with a line that names the state and the operation.
class CRefusingState : public CPassiveState {
 public:
  CRefusingState(std::string stateName, CKmoHubPDDev& dev, const char* className, const char* mode)
      : CPassiveState(std::move(stateName), dev), m_pClassName(className), m_pMode(mode) {}

  bool Reset2Rom() override { return Refuse("Reset2Rom", "reset2rom"); }
  bool Reset2Flash() override { return Refuse("Reset2Flash", "reset2flash"); }
  bool WriteFlash() override { return Refuse("WriteFlash", "write flash"); }
  bool CheckFlash() override { return Refuse("CheckFlash", "check flash"); }
  bool DevReadVersion(std::uint16_t*) override { return Refuse("DevReadVersion", "read version"); }
  bool DveGetICStatus(std::uint8_t*) override { return Refuse("DveGetICStatus", "read version"); }
  bool DevErase() override { return Refuse("DevErase", "erase flash"); }

 private:
  bool Refuse(const char* operation, const char* action) const {
    const std::string tag = std::string(m_pClassName) + "::" + operation;
    CMsg::Instance().Log(1, tag.c_str(), "%s not support %s\n", m_pMode, action);
    return false;
  }

  const char* const m_pClassName;
  const char* const m_pMode;
};

class COfflineState final : public CRefusingState {
 public:
  explicit COfflineState(CKmoHubPDDev& dev)
      : CRefusingState("OfflineState", dev, "COfflineState", "offline") {}
  bool OnArrive() override { return MoveTo(kStateUnknown); }
  bool IsConnected() override { return false; }
  bool IsOffline() override { return true; }
};

class CUnknownState final : public CRefusingState {
 public:
  explicit CUnknownState(CKmoHubPDDev& dev)
      : CRefusingState("UnknownState", dev, "CUnknownState", "unknown") {}
  bool OnRomCode() override { return MoveTo(kStateRom); }
  bool OnFlashCode() override { return MoveTo(kStateFlash); }
};

class CWaitState final : public CRefusingState {
 public:
  explicit CWaitState(CKmoHubPDDev& dev)
      : CRefusingState("WaitState", dev, "CWaitState", "wait mode") {}
  bool OnRemove() override { return MoveTo(kStateOffline); }
};

class CRomMode final : public CPassiveState {
 public:
  explicit CRomMode(CKmoHubPDDev& dev) : CPassiveState("RomState", dev) {}
  bool Reset2Rom() override { return true; }
  bool Reset2Flash() override { return m_pDev->Reset2FlashEx(); }
  bool WriteFlash() override { return m_pDev->WriteFlashEx(m_pDev->GetFwBuffer()); }
  bool CheckFlash() override { return m_pDev->CheckFlashWithCmp(); }
  bool DevReadVersion(std::uint16_t*) override { return RefuseVersion("CRomMode::DevReadVersion"); }
  bool DveGetICStatus(std::uint8_t*) override { return RefuseVersion("CRomMode::DveGetICStatus"); }
  bool DevErase() override { return m_pDev->EraseFlash(); }
  bool OnReset() override {
    MoveTo(kStateWait);
    return false;
  }

 private:
  static bool RefuseVersion(const char* tag) {
    CMsg::Instance().Log(0, tag, "Current Version is RomCode\n");
    return false;
  }
};

class CFlashMode final : public CPassiveState {
 public:
  explicit CFlashMode(CKmoHubPDDev& dev) : CPassiveState("FlashState", dev) {}
  // With two banks the new image goes to the other one while the firmware keeps running.
  bool Reset2Rom() override { return m_pDev->IsDualBank() || m_pDev->Reset2RomEx(); }
  bool Reset2Flash() override { return m_pDev->Reset2FlashEx(); }
  bool WriteFlash() override { return m_pDev->WriteFlashEx(m_pDev->GetFwBuffer()); }
  bool CheckFlash() override { return m_pDev->CheckFlashWithISP(); }
  bool DevReadVersion(std::uint16_t* version) override { return m_pDev->ReadVersion(version); }
  bool DveGetICStatus(std::uint8_t* status) override { return m_pDev->GetICStatus(status); }
  bool DevErase() override { return m_pDev->EraseFlash(); }
  bool OnReset() override { return MoveTo(kStateWait); }
};

}  // namespace

StateTable MakeStates(CKmoHubPDDev& dev) {
  StateTable states;
  states[kStateOffline] = std::make_unique<COfflineState>(dev);
  states[kStateUnknown] = std::make_unique<CUnknownState>(dev);
  states[kStateRom] = std::make_unique<CRomMode>(dev);
  states[kStateFlash] = std::make_unique<CFlashMode>(dev);
  states[kStateWait] = std::make_unique<CWaitState>(dev);
  return states;
}

}  // namespace qzhid
