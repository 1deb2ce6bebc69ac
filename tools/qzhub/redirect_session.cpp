#include "qzhub/redirect_session.h"

namespace qzhub {

RedirectSession::RedirectSession(Offer& offer, const Export& exported, const Line& line)
    : offer_(offer),
      exported_(exported),
      peer_(line.peer),
      link_(offer.machine(), exported.name,
            {.send = line.send, .wake = line.wake, .remark = [this](const std::string& text) {
               offer_.log().Remark(peer_ + ": " + text);
             }}) {}

void RedirectSession::Receive(ByteView bytes) {
  if (!link_.Receive(bytes)) throw ProtocolError("not a message of usbredir");
  if (link_.IsGreeted() && !claim_ && !offer_.Give(exported_, peer_, claim_)) {
    throw ProtocolError("another guest has " + exported_.name);
  }
  Look();
}

void RedirectSession::Look() {
  if (claim_) link_.Look();
}

}  // namespace qzhub
