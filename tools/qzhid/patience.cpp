#include "qzhid/patience.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <iostream>
#include <utility>

#include "qzhid/system.h"

namespace qzhid {

Patience::Patience(Host& host, const std::string& waitingFor)
    : host_(host), moves_(host.MayMove()), text_("waiting for " + waitingFor) {
  const bool isShown = !host.Settings().isQuiet || host.Settings().printsEvents;
  if (++alive_ == 1 && isShown) thread_ = std::thread(&Patience::Show, this);
}

Patience::~Patience() {
  {
    const std::lock_guard lock(mutex_);
    isOver_ = true;
  }
  changed_.notify_one();
  if (thread_.joinable()) thread_.join();
  --alive_;
}

void Patience::Show() {
  constexpr std::chrono::seconds kSoon{1};
  constexpr std::chrono::milliseconds kTurn{100};
  constexpr std::array kSigns{'|', '/', '-', '\\'};
  std::unique_lock lock(mutex_);
  const auto isOver = [this] { return isOver_; };
  if (changed_.wait_for(lock, kSoon, isOver)) return;
  if (!moves_) {
    if (std::exchange(said_, text_) != text_) host_.Say(text_);
    return;
  }
  std::size_t turn = 0;
  do {
    const std::string line = kSigns[turn++ % kSigns.size()] + (' ' + text_);
    // A terminal goes to the next line after its last column, so that stays free.
    const std::size_t columns = std::max<std::size_t>(system::DrawableTerminal().columns, 1);
    std::cerr << '\r' + line.substr(0, columns - 1) + "\x1b[K" << std::flush;
  } while (!changed_.wait_for(lock, kTurn, isOver));
  std::cerr << "\r\x1b[K" << std::flush;
}

}  // namespace qzhid
