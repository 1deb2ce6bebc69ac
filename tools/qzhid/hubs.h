// The hubs that are attached.
#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "qzhid/host.h"
#include "qzhid/location.h"

namespace qzhid {

struct Hub {
  std::uint32_t instance = 0;  ///< good until this process lists again
  std::string vid;             ///< four hexadecimal digits in upper case, as is the product id
  std::string pid;
  std::uint32_t level = 0;
  std::uint32_t port = 0;
  std::vector<std::string> locations;  ///< the first one names the port
  std::vector<std::string> hardwareIds;
  PortId id{};
  std::string shownId{};   ///< with the controller if hubs of several controllers are attached
  std::string userName{};  ///< which the user has given to the port
  bool isOpenable = true;
  bool hasNode = true;  ///< a HID node; without one it has no instance and cannot be opened

  std::string Location() const { return locations.empty() ? "" : locations.front(); }
  /// As messages name it: "1-3.1 (bay 3)".
  std::string Name() const;
};

/// The object that describes a hub in every result.
nlohmann::ordered_json ToJson(const Hub& hub);
/// A version as text: 0x0210 is "2.10".
std::string VersionText(std::uint16_t version);
/// Four hexadecimal digits.
std::string IdText(std::uint32_t id);

/// All hubs of the family: first those that can be opened, in the order in which the system
/// enumerates them, then those that cannot, at last those without a HID node.
std::vector<Hub> ListHubs(Host& host);
/// The same hubs as far as the system shows them, without the library.
std::vector<Hub> ListAttachedHubs(Host& host);
/// The HID devices with exactly these ids, of the family or not.
std::vector<Hub> ListDevices(Host& host, std::uint16_t vid, std::uint16_t pid);

/// What to do about a hub that has no HID node.
inline constexpr const char* kFindNode =
    "return it to the system's HID driver: plug it in again, and end virtual machines and programs "
    "that use it";

/// Why a hub cannot be opened.
Failure NotOpenable(const Hub& hub);

/// The list entry of a hub that may have come back under another number; null when it is away.
const Hub* AtLocation(const std::vector<Hub>& hubs, const std::string& location);

/// A hub that is open for as long as the object lives.
class OpenHub {
 public:
  /// Throws Failure when the hub of the last list does not answer.
  OpenHub(Host& host, const Hub& hub);
  OpenHub(const OpenHub&) = delete;
  OpenHub& operator=(const OpenHub&) = delete;
  ~OpenHub();

  void* Handle() const { return handle_; }
  /// Makes a call of the library that does `what`, with the user knowing that the hub is waited
  /// for. Throws Failure when the status that it returns is not 0.
  void Do(const std::string& what, const std::function<std::uint32_t()>& call) const;

 private:
  Host& host_;
  Hub hub_;
  void* handle_ = nullptr;
};

}  // namespace qzhid
