// The hubs that are attached, and how a user names one.
#pragma once

#include <cstdint>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "qzhid/host.h"

namespace qzhid {

struct Hub {
  std::uint32_t instance = 0;
  std::string vid;  ///< four hexadecimal digits in upper case, as is the product id
  std::string pid;
  std::uint32_t level = 0;
  std::uint32_t port = 0;
  std::vector<std::string> locations;  ///< the first one names the port
  std::vector<std::string> hardwareIds;

  std::string Location() const { return locations.empty() ? "" : locations.front(); }
  /// As errors name it.
  std::string Name() const { return std::to_string(instance) + " (" + Location() + ")"; }
};

nlohmann::ordered_json ToJson(const Hub& hub);
/// A version as text: 0x0210 is "2.10".
std::string VersionText(std::uint16_t version);
/// Four hexadecimal digits.
std::string IdText(std::uint32_t id);

/// The hubs of the family, in the order in which the system enumerates them.
std::vector<Hub> ListHubs(Host& host);
/// HID devices with both ids, of the family or not.
std::vector<Hub> ListDevices(Host& host, std::uint32_t vid, std::uint32_t pid);

/// Hubs that are attached but cannot be opened.
std::vector<Hub> ListClosedHubs(Host& host);
Failure NoPermission(const std::string& hub);

/// Throws Failure when `wanted` matches such a hub.
void CheckPermission(Host& host, const std::string& wanted);

/// The hub that `wanted` names: an instance number, VID:PID, a location or its end; empty: the only
/// one. Throws Failure when there is none or more than one.
Hub PickHub(Host& host, const std::string& wanted);

/// All hubs, also those that cannot be opened. Throws Failure when there is none, or when none can.
std::vector<Hub> AllHubs(Host& host);

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
  /// Throws Failure when the status of a call that did `what` is not 0.
  void Check(std::uint32_t status, const std::string& what) const;

 private:
  Host& host_;
  Hub hub_;
  void* handle_;
};

}  // namespace qzhid
