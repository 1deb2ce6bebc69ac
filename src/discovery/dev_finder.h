// Finds device nodes and informs registered device objects that they arrive and go.
#pragma once

#include <cstdint>
#include <list>

#include "platform/platform.h"

namespace qzhid {

class IDev;

/// Claims device nodes that a finder must ignore.
class IDevFilter {
 public:
  virtual ~IDevFilter() = default;
  virtual bool Claims(std::uint32_t devInst) = 0;
};

/// The waits, on top of scans that derived classes provide. Device objects and filters are not
/// owned. One thread at a time uses a finder.
class IDevFinder {
 public:
  IDevFinder() = default;
  IDevFinder(const IDevFinder&) = delete;
  IDevFinder& operator=(const IDevFinder&) = delete;
  virtual ~IDevFinder() = default;

  /// One scan: removes device objects whose node has gone and arrives one whose node is new.
  virtual void ScanDevs() {}
  /// The same, where every node that matched at first is arrived in its turn, one a scan.
  virtual void ScanDevsEx() {}

  /// Scan until the device is connected. The time-out is in seconds, eight scans each; 0 makes one
  /// scan without pause in the first form and none in the second, negative ones make none.
  virtual bool WaitDevConnect(IDev* dev, int iTimeout);
  virtual bool WaitDevConnectEx(IDev* dev, int iTimeout);
  /// Scans until the device is offline; no scan for 0 or less.
  virtual bool WaitDevUnconnect(IDev* dev, int iTimeout);

  /// The device-interface class to scan; null when there is none.
  virtual const platform::Guid* GetClassGuid() { return nullptr; }

  virtual void AddDev(IDev* dev) { m_DevObjects.push_back(dev); }
  /// Removes every registration of the device.
  virtual void DelDev(IDev* dev) { m_DevObjects.remove(dev); }

  /// Forgets the present nodes, so that the next scan finds them new, and removes the device in the
  /// way of a node that has gone. Returns 1, or 0 where there is nothing to forget.
  virtual int DummyRemove(IDev*) { return 0; }
  /// The same, but closes the open device and takes the device object offline whatever its state.
  virtual int ForceRemove(IDev*) { return 0; }

 protected:
  std::list<IDev*> m_DevObjects;
  std::list<IDevFilter*> m_ExcludeFilters;

 private:
  bool WaitConnected(const char* tag, IDev* dev, int iTimeout, void (IDevFinder::*scan)());
};

}  // namespace qzhid
