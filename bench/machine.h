// Virtual machines to measure on, and the calls of the platform without the library.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/platform.h"
#include "transport/hid_property.h"
#include "virtualhub/current_world.h"

namespace qzhid::bench {

/// A scenario with one hub, "hub", that runs ROM code and holds no image.
std::string HubScenario(std::uint32_t latencyUs, std::uint32_t bankSize);

/// A scenario with so many HID devices that pass for members of the family, "d0", "d1", ...
std::string DeviceScenario(std::uint32_t count);

/// The property object and transfers of an update, with the device "hub" of a new machine open.
class COpenHub {
 public:
  explicit COpenHub(const std::string& scenario);
  ~COpenHub();
  COpenHub(const COpenHub&) = delete;
  COpenHub& operator=(const COpenHub&) = delete;

  virtualhub::World& World() { return m_World; }

 private:
  virtualhub::World& m_World;
  std::unique_ptr<CHidProperty> m_pProperty;
};

/// The report exchanges of some work, to be made again without the library.
class CBareExchanges {
 public:
  /// Does the work once on the machine's device "hub", and takes down what it exchanges.
  template <class Work>
  CBareExchanges(virtualhub::World& world, const Work& work) {
    world.recorder().Start();
    work();
    world.recorder().Stop();
    Take(world);
  }

  void Run();
  std::size_t Count() const { return m_Exchanges.size(); }

 private:
  struct Exchange {
    bool isOutput;
    virtualhub::Bytes report;
  };
  void Take(virtualhub::World& world);

  platform::HidDevice m_Device;
  std::vector<Exchange> m_Exchanges;
};

/// Opens a node as far as the platform is concerned.
platform::HidDevice OpenNode(platform::DevInst node);

/// Makes all the calls of a listing of devices that all pass for members of the family.
void AskPlatform();

}  // namespace qzhid::bench
