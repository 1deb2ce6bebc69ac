#include "qzhid/patience.h"

#include <array>
#include <chrono>
#include <iostream>

namespace qzhid {

Patience::Patience(Host& host, const std::string& waitingFor)
    : host_(host), moves_(host.MayMove()), text_("waiting for " + waitingFor) {
  if (!host.Settings().isQuiet || host.Settings().printsEvents)
    thread_ = std::thread(&Patience::Show, this);
}

Patience::~Patience() {
  {
    const std::lock_guard lock(mutex_);
    isOver_ = true;
  }
  changed_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void Patience::Show() {
  constexpr std::chrono::seconds kSoon{1};
  constexpr std::chrono::milliseconds kTurn{100};
  constexpr std::array kSigns{'|', '/', '-', '\\'};
  std::unique_lock lock(mutex_);
  const auto isOver = [this] { return isOver_; };
  if (changed_.wait_for(lock, kSoon, isOver)) return;
  if (!moves_) {
    host_.Say(text_);
    return;
  }
  std::size_t turn = 0;
  do {
    std::cerr << std::string("\r") + kSigns[turn++ % kSigns.size()] + ' ' + text_ + "\x1b[K"
              << std::flush;
  } while (!changed_.wait_for(lock, kTurn, isOver));
  std::cerr << "\r\x1b[K" << std::flush;
}

}  // namespace qzhid
