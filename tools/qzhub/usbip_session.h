#pragma once

#include <optional>

#include "qzhub/device_link.h"
#include "qzhub/offer.h"
#include "qzhub/session.h"

namespace qzhub {

/// One connection over USB/IP: a request, its answer and, after an import, the link to the device.
class UsbipSession : public Session {
 public:
  UsbipSession(Offer& offer, Line line) : offer_(offer), line_(std::move(line)) {}

  void Receive(ByteView bytes) override;
  bool HasDevice() const override { return link_.has_value(); }
  bool HasEnded() override { return link_ ? link_->HasEnded() : isAnswered_; }
  void RequestEnd() override;
  bool IsOver() override { return !link_ || link_->IsOver(); }

 private:
  std::size_t Answer(ByteView request);
  void Reply(ByteView message);
  Bytes List() const;
  void Import(const std::string& busid);

  Offer& offer_;
  const Line line_;
  Bytes request_;
  bool isAnswered_ = false;
  std::optional<Offer::Claim> claim_;
  std::optional<DeviceLink> link_;  // ends before the claim
};

}  // namespace qzhub
