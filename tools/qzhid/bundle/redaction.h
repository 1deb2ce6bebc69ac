// Leaves names of people, computers and devices out of texts.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace qzhid {

/// What this computer and its user are called.
struct PrivateNames {
  std::vector<std::string> users;
  std::vector<std::string> homes;
  std::vector<std::string> hosts;
  std::vector<std::string> serials;
};

class Redaction {
 public:
  explicit Redaction(const PrivateNames& names);

  /// The text with "[user]", "[host]" and "[serial]" where it has such names. Home folders and
  /// serial numbers of other computers, whose logs may be given, are known by what is around them.
  std::string Apply(std::string text) const;

 private:
  std::vector<std::pair<std::string, std::string>> replacements_;  ///< name, what replaces it
};

}  // namespace qzhid
