// Why a command ended without doing its work.
#pragma once

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace qzhid {

/// Exit statuses of the program.
enum class Exit { Done, Failed, WrongUse, NoSuchHub, NoPermission, Refused, HubLost, InLoader };

/// What failed, on which hub (empty where none is concerned), and what the user does next.
class Failure : public std::runtime_error {
 public:
  Failure(Exit status, const std::string& what, std::string hub, std::string next)
      : std::runtime_error(what), status_(status), hub_(std::move(hub)), next_(std::move(next)) {}

  Exit Status() const { return status_; }
  const std::string& Hub() const { return hub_; }
  const std::string& Next() const { return next_; }

  /// The last lines of another process's log, when the failure was there.
  const std::vector<std::string>& Log() const { return log_; }
  void SetLog(std::vector<std::string> lines) { log_ = std::move(lines); }

 private:
  Exit status_;
  std::string hub_;
  std::string next_;
  std::vector<std::string> log_;
};

}  // namespace qzhid
