#include "qzhub/line_writer.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <deque>
#include <mutex>
#include <string_view>
#include <thread>
#include <utility>

namespace qzhub {

namespace {

constexpr auto kLastLinesTime = std::chrono::milliseconds(200);

// In this thread, a reader that has gone is an error of the write and not the end of the process.
void BlockBrokenPipeSignal() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

void WriteAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = write(descriptor, text.data(), text.size());
    if (count >= 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN) {
      pollfd waited{descriptor, POLLOUT, 0};
      poll(&waited, 1, -1);
    } else if (errno != EINTR) {
      return;  // nobody reads any more
    }
  }
}

}  // namespace

struct LineWriter::State {
  const int descriptor;
  const std::string prefix;
  std::mutex mutex{};
  std::condition_variable changed{};
  std::deque<std::string> lines{};
  std::size_t dropped = 0;  // since the last of the lines
  bool isEnding = false, isOver = false;

  std::string Next();
  void Run();
};

LineWriter::LineWriter(int descriptor, const std::string& prefix)
    : state_(new State{.descriptor = descriptor, .prefix = prefix}) {
  std::thread([state = state_] { state->Run(); }).detach();
}

void LineWriter::End() {
  std::unique_lock<std::mutex> lock(state_->mutex);
  state_->isEnding = true;
  state_->changed.notify_all();
  state_->changed.wait_for(lock, kLastLinesTime, [this] { return state_->isOver; });
}

void LineWriter::Write(const std::string& line) {
  const std::lock_guard<std::mutex> guard(state_->mutex);
  if (state_->isEnding) return;
  // Once a line is dropped, so are the next ones, until that has been said in its place.
  if (state_->dropped > 0 || state_->lines.size() >= kMostLines) {
    ++state_->dropped;
  } else {
    state_->lines.push_back(line);
    state_->changed.notify_all();
  }
}

// The line to write next; waits for it. Empty at the end.
std::string LineWriter::State::Next() {
  std::unique_lock<std::mutex> lock(mutex);
  changed.wait(lock, [this] { return isEnding || !lines.empty() || dropped > 0; });
  std::string line;
  if (!lines.empty()) {
    line = prefix + lines.front() + '\n';
    lines.pop_front();
  } else if (dropped > 0) {
    line = prefix + "dropped " + std::to_string(std::exchange(dropped, 0)) + " lines\n";
  }
  return line;
}

void LineWriter::State::Run() {
  BlockBrokenPipeSignal();
  std::string line = Next();
  while (!line.empty()) {
    WriteAll(descriptor, line);
    line = Next();
  }
  const std::lock_guard<std::mutex> guard(mutex);
  isOver = true;
  changed.notify_all();
}

}  // namespace qzhub
