// The one connection to a hub that all exports share.
#pragma once

#include <memory>

#include "platform/process_object.h"
#include "transport/hid_property.h"

namespace qzhid {

/// Owns the property object that vendor requests go through.
class CProxyDriver {
 public:
  static CProxyDriver& Instance();

  /// Replaces the connection by a fresh one, with no device open.
  void QZ_InitProxyDriver();
  /// Closes and releases the connection, if there is one.
  void QZ_UnInitProxyDriver();

  /// Forgets the connection without touching it, which may be half made.
  void Abandon() noexcept;

  bool IsInitialised() const { return m_pProxy != nullptr; }

 private:
  friend class platform::CProcessObject<CProxyDriver>;

  CProxyDriver() = default;

  std::unique_ptr<CHidProperty> m_pProxy;
};

}  // namespace qzhid
