#include "qzhid/location.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>
#include <utility>
#include <vector>

namespace qzhid {

namespace {

constexpr char kSeparator = '#';

struct Step {
  std::string_view name, argument;  // of "USB(3)": "USB" and "3"
};

Step ReadStep(std::string_view text) {
  const std::size_t open = text.find('(');
  if (open == std::string_view::npos || !text.ends_with(')')) return {text, {}};
  return {text.substr(0, open), text.substr(open + 1, text.size() - open - 2)};
}

std::vector<Step> ReadSteps(std::string_view path) {
  std::vector<Step> steps;
  while (!path.empty()) {
    const std::size_t end = std::min(path.find(kSeparator), path.size());
    steps.push_back(ReadStep(path.substr(0, end)));
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return steps;
}

std::optional<unsigned> Number(std::string_view text) {
  unsigned number = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || stop != text.data() + text.size()) return std::nullopt;
  return number;
}

}  // namespace

std::string PortId::Whole() const { return controller.empty() ? port : controller + '/' + port; }

std::string PortId::Device() const {
  const std::string whole = Whole();
  return whole.substr(0, whole.find(':'));
}

bool PortId::Is(const std::string& text) const {
  const std::string wanted = Upper(text);
  return !port.empty() && (wanted == Upper(port) || wanted == Upper(Whole()));
}

PortId ReadPortId(const std::string& location) {
  const std::vector<Step> steps = ReadSteps(location);
  std::string controller;
  auto step = steps.begin();
  for (; step != steps.end() && step->name != "USBROOT"; ++step) {
    if (step == steps.begin() && step->name == "PCIROOT" && step->argument == "0") continue;
    controller += (controller.empty() ? "" : ".") + std::string(step->argument);
  }
  if (step == steps.end()) return {};
  const auto root = Number(step->argument);
  if (!root) return {};
  std::string port = std::to_string(*root + 1);
  char separator = '-';
  for (++step; step != steps.end(); ++step) {
    const bool isInterface = step->name == "USBMI";
    if (step->name != "USB" && !isInterface) return {};
    port += (isInterface ? ':' : std::exchange(separator, '.')) + std::string(step->argument);
  }
  return {controller, port};
}

bool IsPortId(std::string_view text) {
  const std::size_t slash = text.rfind('/');
  if (slash == 0) return false;
  if (slash != std::string_view::npos) text.remove_prefix(slash + 1);
  const std::size_t dash = text.find('-');
  if (dash == std::string_view::npos || !Number(text.substr(0, dash))) return false;
  for (text.remove_prefix(dash + 1);;) {
    const std::size_t end = std::min(text.find_first_of(".:"), text.size());
    if (!Number(text.substr(0, end))) return false;
    if (end == text.size()) return true;
    if (text[end] == ':') return Number(text.substr(end + 1)).has_value();
    text.remove_prefix(end + 1);
  }
}

bool IsLocation(const std::string& location, const std::string& wanted) {
  const std::string whole = Upper(location), end = Upper(wanted);
  if (end.empty() || !whole.ends_with(end)) return false;
  return whole.size() == end.size() || whole[whole.size() - end.size() - 1] == kSeparator;
}

std::string Upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

}  // namespace qzhid
