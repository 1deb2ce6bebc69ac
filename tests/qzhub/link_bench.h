// What the tests of the protocols share: a hub, what its host is sent, and exchanges that take
// long.
#pragma once

#include <condition_variable>
#include <future>
#include <memory>

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

/// Blocks the next report exchange of a machine. May end before the machine, which then still uses
/// what they share.
class Gate {
 public:
  explicit Gate(virtualhub::Machine& machine) {
    machine.SetExchangeHook([state = state_](const virtualhub::Exchange&) {
      if (state->passed.exchange(true)) return;
      state->reached.set_value();
      state->open.get_future().wait();
    });
  }
  void WaitUntilReached() { state_->reached.get_future().wait(); }
  void Open() { state_->open.set_value(); }

 private:
  struct State {
    std::atomic<bool> passed{false};
    std::promise<void> reached, open;
  };
  std::shared_ptr<State> state_ = std::make_shared<State>();
};

}  // namespace qzhub::test
