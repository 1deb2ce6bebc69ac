// Where a hub is plugged in: location paths, such as "PCIROOT(0)#PCI(1400)#USBROOT(0)#USB(3)", and
// the short port ids that are made of them.
#pragma once

#include <string>
#include <string_view>

namespace qzhid {

/// A port as a person names it.
struct PortId {
  /// Of the host controller: what is in the brackets of the steps before the root hub, joined with
  /// dots, without a first PCIROOT(0). The path above has "1400".
  std::string controller;
  /// The root hub, counted from 1, and the ports from it to the device: "1-3". An interface of a
  /// composite device follows after a colon: "1-3:2". Empty when the path does not name a USB port.
  std::string port;

  /// With the controller in front: "1400/1-3".
  std::string Whole() const;
  /// The same without the interface.
  std::string Device() const;
  /// Whether a text is one of the two forms of this id. Letter case does not count.
  bool Is(const std::string& text) const;
};

PortId ReadPortId(const std::string& location);

/// Whether a text has the form of a port id.
bool IsPortId(std::string_view text);

/// Whether `wanted` is the location, or a number of whole steps at its end. Letter case does not
/// count.
bool IsLocation(const std::string& location, const std::string& wanted);

/// A text in upper case, as far as it is ASCII.
std::string Upper(std::string text);

}  // namespace qzhid
