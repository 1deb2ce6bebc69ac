#include "qzhub/usbip_session.h"

#include <algorithm>

namespace qzhub {

void UsbipSession::Receive(ByteView bytes) {
  if (!link_) {
    if (isAnswered_) return;
    virtualhub::Append(request_, bytes);
    const std::size_t size = Answer(request_);
    if (!link_ || size == request_.size()) return;
    bytes = ByteView(request_).subspan(size);  // a client that did not wait for the answer
  }
  // It is not the client's fault when the connection has failed or the device has left.
  if (!link_->Receive(bytes) && !link_->HasEnded()) {
    throw ProtocolError("not a message of USB/IP");
  }
}

// The size of the request if it is whole.
std::size_t UsbipSession::Answer(ByteView request) {
  if (request.size() < kOpHeaderSize) return 0;
  const auto kind = DecodeOpHeader(request.first(kOpHeaderSize));
  if (!kind) throw ProtocolError("not a request of USB/IP 1.1.1");
  if (*kind == OpRequest::DeviceList) {
    Reply(List());
    return kOpHeaderSize;
  }
  constexpr std::size_t kSize = kOpHeaderSize + kBusidSize;
  if (request.size() < kSize) return 0;
  Import(DecodeBusid(request.subspan(kOpHeaderSize, kBusidSize)));
  return kSize;
}

void UsbipSession::Reply(ByteView message) {
  isAnswered_ = true;
  line_.send(message);
}

Bytes UsbipSession::List() const {
  Bytes entries;
  std::uint32_t count = 0;
  for (const Export& exported : offer_.exports()) {
    const auto device = offer_.machine().OnBus(exported.name);
    if (!device) continue;
    virtualhub::Append(entries, EncodeListEntry(exported.place, *device));
    ++count;
  }
  Bytes message = EncodeListHead(count);
  virtualhub::Append(message, entries);
  return message;
}

void UsbipSession::Import(const std::string& busid) {
  const std::vector<Export>& exports = offer_.exports();
  const auto exported = std::find_if(exports.begin(), exports.end(), [&](const Export& other) {
    return other.place.Busid() == busid;
  });
  const auto device =
      exported == exports.end() ? std::nullopt : offer_.machine().OnBus(exported->name);
  if (!device) return Reply(EncodeImportRefused(OpStatus::NoDevice));
  if (!offer_.Give(*exported, line_.peer, claim_)) {
    return Reply(EncodeImportRefused(OpStatus::DeviceBusy));
  }
  Reply(EncodeImported(exported->place, *device));
  link_.emplace(
      offer_.machine(), *device, exported->place.Devid(),
      DeviceLink::Connection{.send = line_.send, .close = line_.wake, .over = line_.wake});
}

void UsbipSession::RequestEnd() {
  if (link_) link_->RequestEnd();
}

}  // namespace qzhub
