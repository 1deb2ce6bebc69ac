#include "virtualhub/scenario/json_reader.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "virtualhub/scenario/scenario.h"

namespace virtualhub {

namespace {

std::optional<std::uint64_t> ParseHexadecimal(const std::string& text) {
  if (text.size() < 3 || text.compare(0, 2, "0x") != 0) return std::nullopt;
  std::uint64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data() + 2, end, number, 16);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

}  // namespace

void JsonReader::Fail(const std::string& reason) const {
  throw ScenarioError((place_.empty() ? "/" : place_) + ": " + reason);
}

JsonReader JsonReader::Below(const JsonValue& value, const std::string& key) const {
  return {value, place_ + "/" + key};
}

void JsonReader::RejectUnread() const {
  if (value_.kind == JsonValue::Kind::List) {
    for (const JsonReader& item : Items()) item.RejectUnread();
  }
  if (value_.kind != JsonValue::Kind::Object) return;
  for (const JsonValue& member : value_.below) {
    if (!member.wasAsked) Fail("unknown or unused key \"" + member.key + "\"");
    Below(member, member.key).RejectUnread();
  }
}

bool JsonReader::Has(const char* key) const {
  if (value_.kind != JsonValue::Kind::Object) Fail("an object is needed");
  const JsonValue* const member = value_.Find(key);
  if (member == nullptr) return false;
  member->wasAsked = true;
  return true;
}

JsonReader JsonReader::Member(const char* key) const {
  if (!Has(key)) Fail(std::string("\"") + key + "\" is missing");
  return Below(*value_.Find(key), key);
}

std::vector<JsonReader> JsonReader::Items() const {
  if (value_.kind != JsonValue::Kind::List) Fail("an array is needed");
  std::vector<JsonReader> items;
  for (const JsonValue& item : value_.below) {
    items.push_back(Below(item, std::to_string(items.size())));
  }
  return items;
}

std::uint64_t JsonReader::Number(std::uint64_t least, std::uint64_t most) const {
  std::optional<std::uint64_t> number;
  if (value_.kind == JsonValue::Kind::Number) number = value_.number;
  if (value_.kind == JsonValue::Kind::Text) number = ParseHexadecimal(value_.text);
  if (!number) Fail("a non-negative integer or \"0x\" text is needed");
  if (*number < least || *number > most) {
    Fail(std::to_string(*number) + " is not between " + std::to_string(least) + " and " +
         std::to_string(most));
  }
  return *number;
}

std::string JsonReader::Text() const {
  if (value_.kind != JsonValue::Kind::Text) Fail("a text is needed");
  return value_.text;
}

std::vector<std::string> JsonReader::Texts() const {
  std::vector<std::string> texts;
  for (const JsonReader& item : Items()) texts.push_back(item.Text());
  return texts;
}

std::ptrdiff_t JsonReader::IndexIn(const std::vector<std::string>& texts) const {
  const auto found = std::find(texts.begin(), texts.end(), Text());
  if (found != texts.end()) return found - texts.begin();
  std::string known;
  for (const std::string& text : texts) known += (known.empty() ? "" : ", ") + text;
  Fail("\"" + Text() + "\" is not one of " + known);
}

bool JsonReader::Flag() const {
  if (value_.kind != JsonValue::Kind::Flag) Fail("true or false is needed");
  return value_.number != 0;
}

}  // namespace virtualhub
