// A JSON document, as far as scenarios have values. The parser is nlohmann-json's; its own values
// would take more code than everything that reads them, which counts in the virtual library.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace virtualhub {

struct JsonValue {
  enum class Kind {
    Null,
    Flag,
    Number,  ///< a non-negative integer
    Text,
    List,
    Object,
    Other  ///< another number
  };

  Kind kind = Kind::Null;
  std::uint64_t number = 0;  ///< also of a flag
  std::string text = {};
  std::string key = {};               ///< of a member of an object
  std::vector<JsonValue> below = {};  ///< items or members
  mutable bool wasAsked = false;      ///< a reader has asked for it

  /// The member of that name; null when there is none.
  const JsonValue* Find(const std::string& name) const;
};

/// Of several members with the same name, the last one counts. Throws ScenarioError with the place
/// and the reason.
JsonValue ParseJson(const std::string& text);

}  // namespace virtualhub
