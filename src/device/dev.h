// A hub controller as the flows, the finders and the exports see it.
#pragma once

#include <cstdint>
#include <list>
#include <string>
#include <utility>

#include "firmware/fw_finder.h"

namespace qzhid {

class CState;
class IMatch;

/// Every operation has a default that does nothing and fails. Booleans are true for success; signed
/// codes are 0 for success, -1 for a refusal, otherwise an error of the request layer. One caller
/// at a time uses a device.
class IDev {
 public:
  IDev() = default;
  IDev(const IDev&) = delete;
  IDev& operator=(const IDev&) = delete;
  virtual ~IDev() = default;

  // State; ids as in states.h.
  virtual void SetState(CState*) {}
  virtual CState* GetState() { return nullptr; }
  /// The state with that id; null when there is none.
  virtual CState* GetStateById(int) { return nullptr; }

  // Values that the device keeps for its user.
  virtual void SetValue64(std::uint64_t value) { m_nValue64 = value; }
  virtual std::uint64_t GetValue64() { return m_nValue64; }
  virtual void SetFlag(std::uint8_t flag) { m_bFlag = flag; }
  std::uint8_t GetFlag() const { return m_bFlag; }
  virtual void SetValue32(std::uint32_t value) { m_nValue32 = value; }

  // Firmware image.
  virtual void SetFwBuffer(FwBuffer image) { m_FwBuf = std::move(image); }
  const FwBuffer& GetFwBuffer() const { return m_FwBuf; }
  /// The finder of InitFwFinder, owned by the device; null before.
  virtual IFwFinder* GetFwFinder() { return nullptr; }
  virtual void InitFwFinder(const char*) {}

  // What makes a device node this device.
  /// Adds a pair that the device may show; the first is the product id, the second the vendor id.
  virtual void AddVidPid(std::uint32_t, std::uint32_t) {}
  virtual void RemoveVidPid(std::uint32_t, std::uint32_t) {}
  /// The pair at that index, in the order of AddVidPid; false, and nothing is written, after the
  /// last.
  virtual bool GetVidPid(std::uint32_t&, std::uint32_t&, std::size_t) { return false; }
  /// The location path of the device's USB node.
  virtual void SetTopology(const std::wstring&) {}
  /// Level in the USB tree and port number, used where no location path is set.
  virtual void SetPosition(std::uint32_t, std::uint32_t) {}
  virtual std::wstring GetTopology() { return {}; }
  virtual std::uint32_t GetPos1() { return 0xFFFFFFFF; }
  virtual std::uint32_t GetPos2() { return 0xFFFFFFFF; }
  virtual bool IsMatch(std::uint32_t) { return false; }
  virtual bool IsDevInst(std::uint32_t) { return false; }

  // Operations that the current state allows or refuses.
  virtual bool Reset2Rom() { return false; }
  virtual bool Reset2Flash() { return false; }
  virtual bool WriteFlash() { return false; }
  virtual bool CheckFlash() { return false; }
  virtual bool DevReadVersion(std::uint16_t*) { return false; }
  /// Reads the 20-byte status block.
  virtual bool DveGetICStatus(std::uint8_t*) { return false; }
  virtual bool DevErase() { return false; }
  virtual bool IsConnected() { return false; }
  virtual bool IsOffline() { return false; }

  // Operations that do not ask the state.
  virtual bool ForceReset2Rom() { return false; }
  /// Asks the hub which code it runs and informs the state of `dev`.
  virtual bool JudgeCodeMode(IDev*) { return false; }
  virtual bool SetReconnectOption(std::uint8_t) { return false; }
  /// Whether a wait for the device makes sense; `flag` is the device's flag.
  virtual bool IsPresent(std::uint8_t) { return true; }
  virtual bool UnInit(std::uint8_t) { return true; }
  /// Returns true when the request FAILED.
  virtual bool SetDLSlaveAddr(std::uint8_t, std::uint8_t) { return false; }
  /// Reads the version of the image in the firmware buffer; mode as in fw_image.h.
  virtual bool GetBinVersion(std::uint16_t*, std::uint8_t) { return false; }

  // Events of discovery.
  virtual bool Arrive(std::uint32_t) { return false; }
  virtual bool Remove() { return false; }
  virtual void ForceRemove() {}

  // Targets behind the hub. `slave` points at the target's address; the timeout is in ms.
  virtual std::int32_t BlockOutTrans(const std::uint8_t*, std::uint8_t, std::uint32_t,
                                     const std::uint8_t*, std::uint16_t, std::uint32_t) {
    return -1;
  }
  virtual std::int32_t BlockInTrans(const std::uint8_t*, std::uint8_t, std::uint32_t, std::uint8_t*,
                                    std::uint16_t, std::uint32_t) {
    return -1;
  }
  virtual std::int32_t I2CConfigImpl(std::uint8_t, std::uint8_t, std::uint8_t) { return -1; }
  virtual std::int32_t I2CWriteImpl(std::uint32_t, std::uint8_t*, std::uint16_t) { return -1; }
  virtual std::int32_t I2CReadImpl(std::uint32_t, std::uint8_t*, std::uint16_t) { return -1; }

 protected:
  std::list<const IMatch*> m_MatchList;  // all of them must accept a node; not owned
  FwBuffer m_FwBuf;
  bool m_bLongRead = false;

 private:
  std::uint64_t m_nValue64 = 0;
  std::uint32_t m_nValue32 = 0;
  std::uint8_t m_bFlag = 0;
};

}  // namespace qzhid
