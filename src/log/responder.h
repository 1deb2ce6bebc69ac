// A receiver of what the message hub delivers.
#pragma once

namespace qzhid {

/// What the hub delivers; several kinds may be combined.
inline constexpr unsigned kLines = 1;
inline constexpr unsigned kTexts = 2;
inline constexpr unsigned kNotices = 4;
inline constexpr unsigned kProgress = 8;

/// The hub calls these one at a time, never two at once on one receiver from different threads;
/// only OnProgress may run at the same time as another. A receiver may call back into the library
/// from any of them.
class IResponder {
 public:
  virtual ~IResponder() = default;

  /// A complete time-stamped line with its line end, of level 0 to 3.
  virtual void OnLog(const char* line, int level) = 0;
  /// Raw text without stamp.
  virtual void OnPrint(const char* text, int level) = 0;
  /// A wait is polling: its name and the whole seconds that remain.
  virtual void OnNotify(const char* text, int remaining, int reserved) = 0;
  /// Progress of an update in percent.
  virtual void OnProgress(int value) = 0;
  /// Sets the level below which lines are dropped.
  virtual void SetLevel(int level) = 0;
  /// The kinds that the receiver does not ignore; never changes. What no receiver takes is not even
  /// formatted.
  virtual unsigned Takes() const { return kLines | kTexts | kNotices | kProgress; }
};

}  // namespace qzhid
