#include "qzhid/explain/session_facts.h"

#include <algorithm>
#include <cstdio>

#include "qzhid/explain/line_facts.h"
#include "qzhid/explain/readable_text.h"

namespace qzhid {

namespace {

constexpr std::size_t kStatusSize = 20;

}  // namespace

void FactReader::Take(const LogEvent& event, Job& job) {
  const LogValues& values = event.values;
  switch (event.line->sign) {
    case Sign::Built:
      log_.session.built = ReadableText(values.texts[0]) + " " + ReadableText(values.texts[1]);
      break;
    case Sign::ListRecord: {
      const ListedHub hub{ReadableText(IdsOf(values.texts[4])), values.Number(2), values.Number(3)};
      auto& hubs = log_.session.hubs;
      const bool isKnown = std::find(hubs.begin(), hubs.end(), hub) != hubs.end();
      if (!isKnown && hubs.size() < kMostSeen) hubs.push_back(hub);
      break;
    }
    case Sign::Opened:
      log_.pointers = values.texts[1].starts_with("0x") ? System::Linux : System::Windows;
      break;
    case Sign::Path:
      job.image = ReadableText(values.texts[0]);
      break;
    case Sign::HubIds:
      job.hub = TextOfIds(values.Number(0), values.Number(1));
      break;
    case Sign::TwoBanks:
      job.hasTwoBanks = true;
      break;
    case Sign::StatusBytes:
      TakeStatus(event, job);
      break;
    default:
      break;
  }
}

void TakeStatusBlock(std::span<const std::uint8_t> status, Job& job) {
  if (status.size() < kStatusSize) return;
  job.hub = TextOfIds(status[0] * 256u + status[1], status[4] * 256u + status[5]);
  char version[16] = {};
  std::snprintf(version, sizeof(version), "%x.%02x", status[10], status[11]);
  job.version = version;
}

void FactReader::TakeStatus(const LogEvent& event, Job& job) {
  if (status_.size() >= kStatusSize) return;
  for (std::size_t i = 0; i < event.values.count; ++i) {
    status_.push_back(static_cast<std::uint8_t>(event.values.Number(i)));
  }
  TakeStatusBlock(status_, job);
}

}  // namespace qzhid
