// What a device can do at the moment, and how events move it on.
#pragma once

#include <cstdint>
#include <string>
#include <utility>

namespace qzhid {

class CKmoHubPDDev;

/// Operations return true when done. Events return true when the state moved on, but see the ROM
/// state's OnReset. Queries do not change anything. A state never changes once it is made.
class CState {
 public:
  CState(std::string stateName, CKmoHubPDDev& dev) : name(std::move(stateName)), m_pDev(&dev) {}
  CState(const CState&) = delete;
  CState& operator=(const CState&) = delete;
  virtual ~CState() = default;

  virtual bool Reset2Rom() = 0;
  virtual bool Reset2Flash() = 0;
  virtual bool WriteFlash() = 0;
  virtual bool CheckFlash() = 0;
  virtual bool DevReadVersion(std::uint16_t* version) = 0;
  virtual bool DveGetICStatus(std::uint8_t* status) = 0;
  virtual bool DevErase() = 0;

  /// The device node has arrived; has gone.
  virtual bool OnArrive() = 0;
  virtual bool OnRemove() = 0;
  /// The hub was found running its ROM code; its flash code.
  virtual bool OnRomCode() = 0;
  virtual bool OnFlashCode() = 0;
  /// The hub has accepted a reset.
  virtual bool OnReset() = 0;

  virtual bool IsConnected() = 0;
  virtual bool IsOffline() = 0;

  const std::string name;

 protected:
  CKmoHubPDDev* const m_pDev;  // the owner of this state
};

}  // namespace qzhid
