// Calls that may take long.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "qzhid/host.h"

namespace qzhid {

/// While an object of this class lives, standard error says what the program waits for: after a
/// second, by a sign that turns on a terminal and by one line elsewhere; not with --quiet. Of
/// objects that live at the same time, only the first does so. For one thread.
class Patience {
 public:
  Patience(Host& host, const std::string& waitingFor);
  Patience(const Patience&) = delete;
  Patience& operator=(const Patience&) = delete;
  ~Patience();

 private:
  void Show();

  Host& host_;
  bool moves_;
  std::string text_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool isOver_ = false;
  std::thread thread_;
  inline static int alive_ = 0;
  inline static std::string said_;  ///< the last line, which is not repeated
};

}  // namespace qzhid
