// Scans the nodes of a device-interface class.
#pragma once

#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "discovery/dev_finder.h"

namespace qzhid {

class CUSBDevFind : public IDevFinder {
 public:
  const platform::Guid* GetClassGuid() override = 0;

  void ScanDevs() override;
  void ScanDevsEx() override;
  int DummyRemove(IDev* dev) override;
  int ForceRemove(IDev* dev) override;

  /// Makes the present nodes that no filter claims the current ones. Returns false, with the
  /// current nodes as they were, when the system does not list its nodes.
  virtual bool EnumAllDevs();

  /// The same for nodes whose first hardware id contains both ids, as lower-case hexadecimal text
  /// without leading zeros, anywhere. Only the low 16 bits of the ids count.
  bool EnumAllDevsWithFilter(std::uint32_t vid, std::uint32_t pid);

  virtual bool IsExcludedDev(std::uint32_t devInst);

  /// Arrives the first device object that matches a new node and answers. At most one a scan.
  virtual void ArriveAllDevs();

  /// Collects, once, all new nodes that match a device object; then serves one of them a call.
  void ArriveAllDevsEx();

  const std::vector<std::uint32_t>& CurrentDevInsts() const { return m_CurDevInsts; }

 protected:
  bool EnumNodes(const char* tag, const std::function<bool(std::uint32_t)>& isWanted);

  /// Opens `node` for each device object that matches `matchNode`, in turn, until one opens; then
  /// polls the hub. Returns true when a device object has arrived.
  bool ArriveNode(std::uint32_t matchNode, std::uint32_t node, int attempts);

  const std::vector<std::uint32_t>& ArrivedDevInsts() const { return m_ArrivedDevInsts; }

 private:
  void DiffDevList();
  void RemoveAllDevs();
  void CollectSuitDevs();

  std::vector<std::uint32_t> m_LastDevInsts;  // of the previous scan, sorted
  std::vector<std::uint32_t> m_CurDevInsts;
  std::vector<std::uint32_t> m_ArrivedDevInsts;
  std::vector<std::uint32_t> m_RemovedDevInsts;
  std::deque<std::uint32_t> m_SuitDevInsts;
  bool m_bCollectSuit = true;
};

/// Asks the open hub to accept vendor commands, up to `attempts` times with pauses of 100 ms.
/// Returns the number of attempts that it took; 0 when all failed.
int ConnectPoll(int attempts);

/// Reads the node's hardware ids into `ids`, at most 1024 bytes of UTF-16 with all terminators; on
/// failure logs under `tag`.
bool ReadHardwareIds(const char* tag, std::uint32_t node, std::wstring& ids);

}  // namespace qzhid
