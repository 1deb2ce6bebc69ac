#include "qzhid/explain/capture_account.h"

#include <algorithm>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "qzhid/explain/captured_job.h"
#include "qzhid/explain/request_names.h"
#include "qzhid/failure.h"
#include "virtualhub/capture/captured_hub.h"
#include "virtualhub/capture/usb_requests.h"

namespace qzhid {

namespace {

using virtualhub::UsbAddress;
using virtualhub::UsbTransfer;

constexpr std::size_t kMostHubs = 100;       // that are followed at the same time
constexpr std::size_t kMostAddresses = 100;  // of a hub that are shown

/// One hub, wherever it is.
struct FollowedHub {
  Session session;
  CapturedJobs jobs{session};
  UsbAddress address;
};

const char* SourceOf(std::uint16_t linkType) {
  return linkType == virtualhub::kUsbpcapLink ? "captured by USBPcap on Windows"
                                              : "captured as by usbmon on Linux";
}

/// Makes sessions of the requests, one for each hub.
class CapturedSessions {
 public:
  CapturedSessions(LogAccount& account, const virtualhub::TransferReader& reader)
      : account_(account), reader_(reader) {}

  void Take(const UsbTransfer& transfer) {
    if (!spotter_.Take(transfer)) return;
    TakeArrival(transfer);
    if (const auto request = collector_.Take(transfer)) Take(*request);
  }

  void End() {
    while (const auto request = collector_.TakeRest()) Take(*request);
    while (!hubs_.empty()) EndFirst();
  }

 private:
  /// That a hub is there shows in its enumeration: it may have its old address.
  void TakeArrival(const UsbTransfer& transfer) {
    if (virtualhub::IdsReadBy(transfer) && described_.size() < virtualhub::HubSpotter::kMostHubs) {
      described_.insert(transfer.address);
    }
    if (transfer.Request() != virtualhub::kSetConfiguration) return;
    for (const auto& hub : hubs_) {
      if (hub->address == transfer.address) hub->jobs.Arrive();
    }
  }

  void Take(const CapturedRequest& request) {
    if (MeaningOf(request.request).empty()) ++account_.shape.unknown;
    HubAt(request).jobs.Take(request);
  }

  FollowedHub& HubAt(const CapturedRequest& request) {
    for (const auto& hub : hubs_) {
      if (hub->address == request.address) return *hub;
    }
    // A hub that has reset, or left, has a new address on the same bus.
    const auto away = std::find_if(hubs_.rbegin(), hubs_.rend(), [&](const auto& hub) {
      return hub->jobs.IsAway() && hub->address.bus == request.address.bus;
    });
    FollowedHub& hub = away != hubs_.rend() ? **away : Add(request);
    if (away != hubs_.rend()) hub.jobs.Arrive();
    hub.address = request.address;
    auto& addresses = hub.session.addresses;
    if (addresses.size() < kMostAddresses) addresses.push_back(TextOf(request.address));
    return hub;
  }

  FollowedHub& Add(const CapturedRequest& request) {
    if (hubs_.size() == kMostHubs) EndFirst();
    if (!described_.contains(request.address)) account_.shape.isCutAtStart = true;
    FollowedHub& hub = *hubs_.emplace_back(std::make_unique<FollowedHub>());
    Session& session = hub.session;
    session.file = account_.file;
    session.isCapture = true;
    session.host = SourceOf(reader_.linkType());
    session.system = System::Linux;  // whose error numbers a capture gets
    session.level = 0;
    session.begin = request.beginUs;
    session.firstLine = request.frame;
    return hub;
  }

  void EndFirst() {
    hubs_.front()->jobs.End();
    KeepSession(account_, std::move(hubs_.front()->session));
    hubs_.erase(hubs_.begin());
  }

  LogAccount& account_;
  const virtualhub::TransferReader& reader_;
  virtualhub::HubSpotter spotter_;
  RequestCollector collector_;
  std::set<UsbAddress> described_;  ///< whose device descriptors were read
  std::vector<std::unique_ptr<FollowedHub>> hubs_;
};

}  // namespace

LogAccount ReadCapture(const std::string& file, virtualhub::ByteView beginning,
                       std::istream& stream) try {
  LogAccount account;
  account.file = file;
  account.isCapture = true;
  virtualhub::TransferReader reader(stream, beginning);
  CapturedSessions sessions(account, reader);
  for (UsbTransfer transfer; reader.Next(transfer);) sessions.Take(transfer);
  sessions.End();
  account.shape.bytes = reader.file().bytes();
  account.shape.lines = account.shape.events = reader.file().frames();
  account.shape.isCutAtEnd = reader.file().IsCutOff();
  if (account.sessions.empty()) throw virtualhub::CaptureError("has no requests to a hub");
  return account;
} catch (const virtualhub::CaptureError& error) {
  throw Failure(Exit::Failed, "the capture " + file + " " + error.what(), "",
                "capture the bus of the hub again, from before it is plugged in");
}

}  // namespace qzhid
