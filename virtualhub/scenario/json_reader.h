// Checked access to JSON values: whatever is wrong is reported with its place, and so is what
// nobody read.
#pragma once

#include <initializer_list>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "virtualhub/scenario/json_value.h"

namespace virtualhub {

/// One JSON value and its place, a JSON pointer. Every function throws ScenarioError for a value of
/// the wrong kind. The reads with a key leave `out` alone when the object has no such member.
class JsonReader {
 public:
  /// Of a whole document, which must live as long as its readers.
  explicit JsonReader(const JsonValue& document) : JsonReader(document, "") {}

  [[noreturn]] void Fail(const std::string& reason) const;

  /// Fails at the first member, here or below, that no reader was asked for.
  void RejectUnread() const;

  bool Has(const char* key) const;
  bool IsNull() const { return value_.kind == JsonValue::Kind::Null; }
  JsonReader Member(const char* key) const;
  std::vector<JsonReader> Items() const;

  /// A non-negative integer, or one as text in hexadecimal with a leading "0x".
  std::uint64_t Number(std::uint64_t least, std::uint64_t most) const;
  std::string Text() const;
  std::vector<std::string> Texts() const;
  bool Flag() const;

  template <typename T>
  void Number(const char* key, T& out, std::uint64_t least = 0,
              std::uint64_t most = std::numeric_limits<T>::max()) const {
    if (Has(key)) out = static_cast<T>(Member(key).Number(least, most));
  }
  void Flag(const char* key, bool& out) const {
    if (Has(key)) out = Member(key).Flag();
  }
  void Text(const char* key, std::string& out) const {
    if (Has(key)) out = Member(key).Text();
  }

  /// The value that goes with the member's text; other texts are rejected.
  template <typename T>
  void Choice(const char* key, T& out,
              std::initializer_list<std::pair<const char*, T>> choices) const {
    if (!Has(key)) return;
    std::vector<std::string> texts;
    for (const auto& choice : choices) texts.push_back(choice.first);
    out = std::next(choices.begin(), Member(key).IndexIn(texts))->second;
  }

 private:
  JsonReader(const JsonValue& value, std::string place) : value_(value), place_(std::move(place)) {}
  std::ptrdiff_t IndexIn(const std::vector<std::string>& texts) const;
  JsonReader Below(const JsonValue& value, const std::string& key) const;

  const JsonValue& value_;
  std::string place_;
};

}  // namespace virtualhub
