// What all commands share: the global options, the library, its log, and the way to report.
#pragma once

#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "qzhid/failure.h"
#include "qzhid/library.h"
#include "qzhid/listed_ids.h"
#include "qzhid/port_names.h"

namespace qzhid {

nlohmann::ordered_json ToJson(const Failure& failure);
/// The text, or null when it is empty.
nlohmann::ordered_json OrNull(const std::string& text);

struct Options {
  std::string chosenLibrary;
  bool isVirtual = false;
  std::string log;
  std::optional<int> logLevel;  ///< as the user wants it
  bool isJson = false;
  bool isQuiet = false;
  bool isPlain = false;
  bool isVerbose = false;
  bool printsEvents = false;  ///< standard error has JSON objects only, one a line
};

class Host {
 public:
  Host() = default;
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;
  ~Host();

  Options& Settings() { return options_; }

  /// Whether the library has virtual hubs, by its folder.
  bool IsVirtual() const;

  /// The library, loaded at the first call. Throws Failure when it cannot be.
  const Library& Api();

  /// The names of ports, read at the first call. Throws Failure when the user's file is not usable.
  const PortNames& Names();

  /// The ids of further hubs that the user has told the library to list, by VidPid.ini beside it.
  std::vector<ListedIds> FurtherIds();

  /// A command's result on standard output: the object with --json, else the text, which ends with
  /// a newline; the text not with --quiet.
  void Report(const nlohmann::ordered_json& object, const std::string& text) const;

  /// The exit status becomes the failure's, or Failed when another kind of failure was counted
  /// before.
  void Count(const Failure& failure);

  /// An object on a line of standard error.
  void PrintEvent(const nlohmann::ordered_json& event) const;

  /// A remark on a line of standard error; not with --quiet, unless it is an event.
  void Say(const std::string& text) const;

  /// Counts a failure and shows it: one line on standard error, and with --verbose the last lines
  /// of the log after it.
  void Show(const Failure& failure);

  /// Shows what ended the command; with --json also an object on standard output.
  void Report(const Failure& failure);

  /// What the program ends with.
  void SetStatus(Exit status) { status_ = status; }
  int Status() const { return static_cast<int>(status_); }

  /// From now on only other processes log to the user's file, which is emptied. Throws Failure.
  void LeaveLogToOthers();

  /// Appends another process's log to this one's and removes it, while the library is released.
  void TakeLog(const std::string& log);

  /// Releases the library and its log, until Api is called again.
  void Release();

  /// A folder for files of this run, which are removed with it; empty when there can be none.
  const std::filesystem::path& Temporary();

  /// The last lines of this process's log.
  std::vector<std::string> LastLogLines() const;

  /// Whether standard error is a terminal on which bars may move, and whether they may have
  /// colours.
  bool MayMove() const;
  bool IsColourful() const;

 private:
  void StartLog();

  Options options_;
  Exit status_ = Exit::Done;
  std::optional<Library> library_;
  std::optional<PortNames> names_;
  bool isLogOfOthers_ = false;
  std::filesystem::path logFile_;
  std::filesystem::path temporary_;
};

}  // namespace qzhid
