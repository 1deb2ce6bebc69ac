// Logs for 'qzhid explain': any text, or lines of the library in any order.
#include <sstream>

#include "fuzz/fuzz.h"
#include "qzhid/explain/html_report.h"
#include "qzhid/explain/json_report.h"
#include "qzhid/explain/log_account.h"
#include "qzhid/explain/text_report.h"
#include "qzhid/failure.h"

using namespace qzhid::fuzz;

/// A line of the table, with values for its conversions.
static std::string LineOf(Input& input) {
  const auto lines = qzhid::LogLines();
  const qzhid::LogLine& line = lines[input.Word() % lines.size()];
  const std::string names = line.names;
  std::string text = "[2024-03-07, 09:05:0" + std::to_string(input.Byte() % 10) + "]  " +
                     names.substr(0, names.find(' ')) + ", ";
  for (const char* at = line.text; *at != '\0'; ++at) {
    text += *at == '%' ? std::to_string(input.Byte()) : std::string(1, *at);
  }
  return text + '\n';
}

/// The lines in a text that comes in pieces of that size.
static std::uint64_t EventsOf(const std::string& text, std::size_t size) {
  static const qzhid::LogPatterns patterns;
  qzhid::LogReader reader(patterns, [](const qzhid::LogEvent&) {});
  for (std::size_t at = 0; at < text.size(); at += size) {
    reader.Take(std::string_view(text).substr(at, size));
  }
  reader.End();
  return reader.Shape().events;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) try {
  Input input(data, size);
  const bool isText = input.Flag();
  const std::size_t piece = input.Byte() + 1u;
  std::string text;
  if (isText) {
    const Bytes bytes = input.Take(size);
    text.assign(bytes.begin(), bytes.end());
  }
  while (!input.IsEmpty()) text += LineOf(input);
  Require(EventsOf(text, piece) == EventsOf(text, text.size() + 1), "pieces make no difference");
  std::istringstream stream(text);
  const std::vector<qzhid::LogAccount> accounts{qzhid::ReadLog("log", "", stream)};
  Require(!TextReport(accounts).empty(), "there is a report");
  Require(!HtmlReport(accounts).empty() && !JsonReport(accounts).dump().empty(),
          "reports are UTF-8");
  return 0;
} catch (const qzhid::Failure&) {
  return 0;
}
