#include "qzhid/bundle/redaction.h"

#include <algorithm>
#include <cctype>

#include "qzhid/location.h"

namespace qzhid {

namespace {

constexpr std::size_t kShortestName = 2;
constexpr std::size_t kShortestSerial = 4;  // "0" and "123" are in other words, too
constexpr std::string_view kEnds = " \t\r\n\"',;:()[]<>";

bool IsWordPart(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' ||
         static_cast<unsigned char>(c) >= 0x80;
}

/// Replaces whole words, in upper and lower case.
std::string ReplaceWord(const std::string& text, const std::string& word, const std::string& by) {
  const std::string wanted = Upper(word), upper = Upper(text);
  std::string result;
  std::size_t done = 0;
  for (std::size_t at = 0; (at = upper.find(wanted, at)) != std::string::npos;) {
    const std::size_t end = at + wanted.size();
    const bool isWhole = (at == 0 || !IsWordPart(upper[at - 1]) || !IsWordPart(wanted.front())) &&
                         (end == upper.size() || !IsWordPart(upper[end]));
    at = isWhole ? end : at + 1;
    if (!isWhole) continue;
    result.append(text, done, end - wanted.size() - done).append(by);
    done = end;
  }
  return result.append(text, done);
}

/// Replaces what follows a marker, up to one of the ends.
std::string ReplaceAfter(const std::string& text, std::string_view marker, std::string_view ends,
                         const std::string& by) {
  const std::string wanted = Upper(std::string(marker)), upper = Upper(text);
  std::string result;
  std::size_t done = 0;
  for (std::size_t at = 0; (at = upper.find(wanted, at)) != std::string::npos;) {
    at += wanted.size();
    const std::size_t end = std::min(text.find_first_of(ends, at), text.size());
    if (end == at) continue;
    result.append(text, done, at - done).append(by);
    done = at = end;
  }
  return result.append(text, done);
}

/// The last part of a device id, as in "USB\VID_2E7C&PID_0818\1234": a serial number, unless it
/// has an "&", by which Windows marks ids of its own.
std::string ReplaceInDeviceIds(const std::string& text) {
  constexpr std::string_view kMarks = "\\#";
  std::string result;
  std::size_t done = 0;
  for (std::size_t at = 0; (at = text.find("PID_", at)) != std::string::npos;) {
    at += 4;
    const std::size_t stop = std::min(text.find_first_of(kEnds, at), text.size());
    const std::size_t mark = text.find_first_of(kMarks, at);
    if (mark >= stop) continue;
    const std::size_t end = std::min(text.find_first_of(kMarks, mark + 1), stop);
    const bool isOfWindows = text.substr(mark, end - mark).find('&') != std::string::npos;
    if (end == mark + 1 || isOfWindows) continue;
    result.append(text, done, mark + 1 - done).append("[serial]");
    done = at = end;
  }
  return result.append(text, done);
}

}  // namespace

Redaction::Redaction(const PrivateNames& names) {
  const auto add = [this](const std::vector<std::string>& list, std::size_t shortest,
                          const char* by) {
    for (const std::string& name : list) {
      if (name.size() >= shortest) replacements_.emplace_back(name, by);
    }
  };
  add(names.homes, kShortestName, "[home]");
  add(names.serials, kShortestSerial, "[serial]");
  add(names.users, kShortestName, "[user]");
  add(names.hosts, kShortestName, "[host]");
  // A name inside of a longer one comes after it.
  std::stable_sort(replacements_.begin(), replacements_.end(),
                   [](const auto& a, const auto& b) { return a.first.size() > b.first.size(); });
}

std::string Redaction::Apply(std::string text) const {
  for (const auto& [name, by] : replacements_) text = ReplaceWord(text, name, by);
  for (const char* folder : {"/home/", "/Users/", "\\Users\\", "\\Documents and Settings\\"}) {
    text = ReplaceAfter(text, folder, "/\\\r\n\"':<>|?*", "[user]");
  }
  for (const char* label : {"\n  serial ", "SerialNumber: "}) {
    text = ReplaceAfter(text, label, "\r\n", "[serial]");
  }
  return ReplaceInDeviceIds(text);
}

}  // namespace qzhid
