#include "qzhub/outbox.h"

namespace qzhub {

bool Outbox::Send(virtualhub::ByteView message) {
  const std::lock_guard<std::mutex> guard(mutex_);
  if (rest_.empty()) progress_ = std::chrono::steady_clock::now();
  rest_.insert(rest_.end(), message.begin(), message.end());
  return isHeld_ ? !failed_ : FlushLocked();
}

void Outbox::Hold() {
  const std::lock_guard<std::mutex> guard(mutex_);
  isHeld_ = true;
}

bool Outbox::Flush() {
  const std::lock_guard<std::mutex> guard(mutex_);
  isHeld_ = false;
  return FlushLocked();
}

bool Outbox::FlushLocked() {
  if (rest_.empty() || failed_) return !failed_;
  const std::optional<std::size_t> sent = SendNow(socket_, rest_);
  failed_ = !sent;
  if (sent.value_or(0) == 0) return !failed_;
  rest_.erase(rest_.begin(), rest_.begin() + static_cast<std::ptrdiff_t>(*sent));
  progress_ = std::chrono::steady_clock::now();
  return true;
}

bool Outbox::IsEmpty() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return rest_.empty();
}

bool Outbox::IsStuck() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return !isHeld_ && !rest_.empty();
}

Deadline Outbox::LastProgress() const {
  const std::lock_guard<std::mutex> guard(mutex_);
  return progress_;
}

}  // namespace qzhub
