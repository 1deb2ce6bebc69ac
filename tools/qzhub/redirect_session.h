#pragma once

#include <optional>

#include "qzhub/offer.h"
#include "qzhub/redirect_link.h"
#include "qzhub/session.h"

namespace qzhub {

/// One connection over usbredir: a guest gets the device of the address once it has said hello, and
/// keeps it until the connection ends.
class RedirectSession : public Session {
 public:
  RedirectSession(Offer& offer, const Export& exported, const Line& line);

  void Receive(ByteView bytes) override;
  void Look() override;
  bool AwaitsDevice() const override { return claim_ && link_.AwaitsDevice(); }
  bool HasDevice() const override { return claim_.has_value(); }
  bool HasEnded() override { return false; }
  void RequestEnd() override { link_.RequestEnd(); }
  bool IsOver() override { return link_.IsOver(); }

 private:
  Offer& offer_;
  const Export& exported_;
  const std::string peer_;
  std::optional<Offer::Claim> claim_;
  RedirectLink link_;  // ends before the claim
};

}  // namespace qzhub
