#include "discovery/dev_finder.h"

#include "device/dev.h"
#include "log/msg.h"

namespace qzhid {

namespace {

constexpr std::int64_t kScansPerSecond = 8;
constexpr std::uint32_t kPauseMs = 128;

bool IsThere(IDev& dev) { return dev.IsPresent(dev.GetFlag()) && dev.IsConnected(); }

bool EndConnectWait(const char* tag, bool isConnected) {
  CMsg& msg = CMsg::Instance();
  msg.Print(2, "\n");
  if (isConnected) {
    msg.Log(0, tag, "wait dev connect return true.\n");
  } else {
    msg.Log(1, tag, "wait dev connect return false.\n");
  }
  return isConnected;
}

void Notice(const char* wait, std::int64_t remainingScans) {
  CMsg::Instance().Notify(wait, static_cast<int>(remainingScans / kScansPerSecond));
}

}  // namespace

bool IDevFinder::WaitConnected(const char* tag, IDev* dev, int iTimeout,
                               void (IDevFinder::*scan)()) {
  for (std::int64_t scans = iTimeout * kScansPerSecond; scans > 0;) {
    --scans;
    Notice("Wait Dev Connect", scans);
    (this->*scan)();
    if (IsThere(*dev)) return EndConnectWait(tag, true);
    platform::SleepMs(kPauseMs);
  }
  return EndConnectWait(tag, false);
}

bool IDevFinder::WaitDevConnect(IDev* dev, int iTimeout) {
  constexpr const char* kTag = "IDevFinder::WaitDevConnect";
  if (iTimeout != 0) return WaitConnected(kTag, dev, iTimeout, &IDevFinder::ScanDevs);
  CMsg& msg = CMsg::Instance();
  msg.Log(0, kTag, "iTimeout is 0\n");
  ScanDevs();
  bool isConnected = false;
  if (dev->IsPresent(dev->GetFlag())) {
    msg.Log(0, kTag, "Check is Present\n");
    isConnected = dev->IsConnected();
  }
  return EndConnectWait(kTag, isConnected);
}

bool IDevFinder::WaitDevConnectEx(IDev* dev, int iTimeout) {
  return WaitConnected("IDevFinder::WaitDevConnectEx", dev, iTimeout, &IDevFinder::ScanDevsEx);
}

bool IDevFinder::WaitDevUnconnect(IDev* dev, int iTimeout) {
  constexpr const char* kTag = "IDevFinder::WaitDevUnconnect";
  CMsg& msg = CMsg::Instance();
  for (std::int64_t scans = iTimeout * kScansPerSecond; scans > 0;) {
    --scans;
    Notice("Wait Dev Unconnect", scans);
    ScanDevs();
    if (dev->IsOffline()) {
      msg.Log(0, kTag, "wait dev unconnect return true.\n");
      return true;
    }
    platform::SleepMs(kPauseMs);
  }
  msg.Log(1, kTag, "wait dev unconnect return false.\n");
  return false;
}

}  // namespace qzhid
