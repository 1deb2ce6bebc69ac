#pragma once

#include <algorithm>
#include <optional>
#include <vector>

#include "qzhub/event_log.h"
#include "qzhub/exports.h"
#include "virtualhub/bus/machine.h"

namespace qzhub {

/// The devices that a server offers, each to one client at a time. For one thread.
class Offer {
 public:
  Offer(virtualhub::Machine& machine, std::vector<Export> exports, EventLog& log)
      : machine_(machine), exports_(std::move(exports)), log_(log) {}

  virtualhub::Machine& machine() const { return machine_; }
  const std::vector<Export>& exports() const { return exports_; }
  EventLog& log() const { return log_; }

  /// A device that a client has, until this goes.
  class Claim {
   public:
    Claim(Offer& offer, const Export& exported) : offer_(offer), exported_(exported) {}
    ~Claim() { offer_.Release(exported_); }
    Claim(const Claim&) = delete;
    Claim& operator=(const Claim&) = delete;

   private:
    Offer& offer_;
    const Export& exported_;
  };

  /// Gives the client of that address one of the exports; false while another client has it.
  bool Give(const Export& exported, const std::string& peer, std::optional<Claim>& claim) {
    if (std::find(taken_.begin(), taken_.end(), &exported) != taken_.end()) return false;
    taken_.push_back(&exported);
    claim.emplace(*this, exported);
    log_.Event("imported " + exported.Label() + " by=" + peer);
    return true;
  }

 private:
  void Release(const Export& exported) {
    std::erase(taken_, &exported);
    log_.Event("released " + exported.Label());
  }

  virtualhub::Machine& machine_;
  const std::vector<Export> exports_;
  EventLog& log_;
  std::vector<const Export*> taken_;
};

}  // namespace qzhub
