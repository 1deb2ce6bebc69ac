#include "virtualhub/scenario/json_value.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "virtualhub/scenario/scenario.h"

namespace virtualhub {

namespace {

constexpr std::size_t kDeepest = 100;

/// Makes values of what the parser finds. Each function returns whether the parser goes on.
class JsonBuilder {
 public:
  using Json = nlohmann::json;

  explicit JsonBuilder(JsonValue& root) : root_(root) {}

  bool null() { return Add(JsonValue::Kind::Null, 0, {}); }
  bool boolean(bool value) { return Add(JsonValue::Kind::Flag, value ? 1 : 0, {}); }
  bool number_integer(std::int64_t) { return Add(JsonValue::Kind::Other, 0, {}); }
  bool number_unsigned(std::uint64_t value) { return Add(JsonValue::Kind::Number, value, {}); }
  bool number_float(double, const std::string&) { return Add(JsonValue::Kind::Other, 0, {}); }
  bool string(std::string& value) { return Add(JsonValue::Kind::Text, 0, value); }
  bool binary(Json::binary_t&) { return Add(JsonValue::Kind::Other, 0, {}); }
  bool start_object(std::size_t) { return Open(JsonValue::Kind::Object); }
  bool start_array(std::size_t) { return Open(JsonValue::Kind::List); }
  bool end_object() { return Close(); }
  bool end_array() { return Close(); }
  bool key(std::string& name) {
    key_ = name;
    return true;
  }
  bool parse_error(std::size_t, const std::string&, const Json::exception& error) {
    // Without the leading "[json.exception...] ".
    const std::string message = error.what();
    const std::size_t end = message.find("] ");
    throw ScenarioError(end == std::string::npos ? message : message.substr(end + 2));
  }

 private:
  JsonValue& Place() {
    if (open_.empty()) return root_;
    std::vector<JsonValue>& below = open_.back()->below;
    if (open_.back()->kind == JsonValue::Kind::Object) {
      std::erase_if(below, [&](const JsonValue& each) { return each.key == key_; });
    }
    return below.emplace_back();
  }

  bool Add(JsonValue::Kind kind, std::uint64_t number, const std::string& text) {
    JsonValue& added = Place();
    added.kind = kind;
    added.number = number;
    added.text = text;
    added.key = key_;
    return true;
  }

  bool Open(JsonValue::Kind kind) {
    if (open_.size() == kDeepest) throw ScenarioError("the values are nested too deeply");
    Add(kind, 0, {});
    open_.push_back(open_.empty() ? &root_ : &open_.back()->below.back());
    return true;
  }

  bool Close() {
    open_.pop_back();
    return true;
  }

  JsonValue& root_;
  std::vector<JsonValue*> open_;  ///< around the next value; nothing is added to others meanwhile
  std::string key_;
};

}  // namespace

const JsonValue* JsonValue::Find(const std::string& name) const {
  const auto found = std::find_if(below.begin(), below.end(),
                                  [&](const JsonValue& each) { return each.key == name; });
  return found == below.end() ? nullptr : &*found;
}

JsonValue ParseJson(const std::string& text) {
  JsonValue root;
  JsonBuilder builder(root);
  nlohmann::json::sax_parse(text, &builder);
  return root;
}

}  // namespace virtualhub
