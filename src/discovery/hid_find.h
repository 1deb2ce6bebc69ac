// Scans and lists the hubs' HID nodes.
#pragma once

#include "QzHidAPI.h"
#include "discovery/usb_dev_find.h"

namespace qzhid {

/// Keeps the nodes that are of the hub family; matches device objects by the USB node above the
/// HID node, which has the hub's place and ids.
class CHidFind final : public CUSBDevFind {
 public:
  CHidFind() : m_ClassGuid(platform::HidClassGuid()) {}

  const platform::Guid* GetClassGuid() override { return &m_ClassGuid; }
  bool EnumAllDevs() override;
  void ArriveAllDevs() override;

  /// List the hubs, or all HID nodes that pass EnumAllDevsWithFilter. `*pCount` receives the number
  /// of nodes found; `*ppList` an array of as many records for std::free, untouched when there are
  /// none and null when one could not be read. Return 1 for a list, else 0.
  int ListHidDevice(HidDevRecord** ppList, std::uint32_t* pCount);
  int ListHidDevice(std::uint32_t vid, std::uint32_t pid, HidDevRecord** ppList,
                    std::uint32_t* pCount);

 private:
  int ListNodes(HidDevRecord** ppList, std::uint32_t* pCount);

  const platform::Guid m_ClassGuid;
};

/// Counts the nodes above `node` up to and including its root hub, or to the top of the tree.
/// Returns false when a node's id cannot be read or there is no node above.
bool GetDevLevel(std::uint32_t node, std::uint32_t& level);

}  // namespace qzhid
