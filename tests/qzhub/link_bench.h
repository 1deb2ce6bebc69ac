// What the tests of the protocols share: a hub, what its host is sent, and exchanges that take
// long.
#pragma once

#include <condition_variable>
#include <future>

#include "virtualhub/hub_bench.h"

namespace qzhub::test {

using virtualhub::Bytes;
using virtualhub::ByteView;
using virtualhub::test::Hex;
using virtualhub::test::HexText;
using Texts = std::vector<std::string>;

// Setup packets, and vendor requests.
inline const std::string kGetStatus = "80 00 00 00 00 00 02 00";
inline const std::string kEnable = "40 02 01 00 7C 2E", kReset = "40 00";
inline const std::string kHalt = "02 03 00 00 81 00 00 00";

inline Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

/// What comes from a link, from any of its threads.
class LinkBench : public virtualhub::test::HubBench {
 protected:
  bool Note(const std::string& text) {
    const std::lock_guard<std::mutex> guard(mutex_);
    notes_.push_back(text);
    changed_.notify_all();
    return !refusing;
  }
  void Forget() {
    const std::lock_guard<std::mutex> guard(mutex_);
    notes_.clear();
  }
  /// This is all, in order; waits for that many notes.
  void ExpectAnswers(const Texts& answers) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait(lock, [&] { return notes_.size() >= answers.size(); });
    EXPECT_EQ(answers, notes_);
  }

  std::atomic<bool> refusing{false};  // answers cannot be sent

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  Texts notes_;
};

/// Blocks the next report exchange of a machine.
class Gate {
 public:
  explicit Gate(virtualhub::Machine& machine) {
    machine.SetExchangeHook([this](const virtualhub::Exchange&) {
      if (passed_.exchange(true)) return;
      reached_.set_value();
      open_.get_future().wait();
    });
  }
  void WaitUntilReached() { reached_.get_future().wait(); }
  void Open() { open_.set_value(); }

 private:
  std::atomic<bool> passed_{false};
  std::promise<void> reached_, open_;
};

}  // namespace qzhub::test
