#include "qzhid/update_display.h"

#include <algorithm>
#include <iostream>

#include "qzhid/system.h"

namespace qzhid {

void UpdateDisplay::Start(std::size_t hubs) {
  const system::TerminalSize terminal = system::DrawableTerminal();
  isLive_ = style_ == ProgressStyle::Auto && !host_.Settings().isQuiet && host_.MayMove() &&
            hubs < terminal.lines;
}

void UpdateDisplay::Draw(const std::vector<ShownHub>& hubs) {
  constexpr std::size_t kGap = 2;
  if (!isLive_) return;
  const std::size_t columns = system::DrawableTerminal().columns;
  std::size_t width = 0;
  for (const ShownHub& hub : hubs) width = std::max(width, hub.name.size());
  std::vector<std::string> lines;
  for (const ShownHub& hub : hubs) {
    std::string label = hub.name;
    if (!label.empty()) label.append(width + kGap - hub.name.size(), ' ');
    lines.push_back(hub.word.empty() ? hub.progress->Bar(label, columns, host_.IsColourful())
                                     : (label + hub.word).substr(0, columns - 1));
  }
  live_.Draw(lines);
}

void UpdateDisplay::ShowProgress(const Hub& hub, const Progress& progress) {
  if (host_.Settings().printsEvents) {
    host_.PrintEvent({{"event", "progress"},
                      {"port_id", hub.shownId},
                      {"phase", progress.PhaseName()},
                      {"percent", progress.Percent()}});
  } else if (!isLive_ && !host_.Settings().isQuiet) {
    std::cerr << "hub " + hub.Name() + ": " + progress.Text() + '\n' << std::flush;
  }
}

void UpdateDisplay::ShowAway(const Hub& hub, const std::string& why) {
  if (host_.Settings().isQuiet && !host_.Settings().printsEvents) return;
  const std::string text =
      "hub " + hub.Name() + ": " + why + "; waiting until it can be used again";
  host_.Settings().printsEvents ? host_.Say(text) : live_.Say(text);
}

void UpdateDisplay::ShowRetry(const Hub& hub, const std::string& what, int retry, int retries) {
  if (host_.Settings().printsEvents) {
    host_.PrintEvent(
        {{"event", "retry"}, {"port_id", hub.shownId}, {"what", what}, {"retry", retry}});
  } else if (!host_.Settings().isQuiet) {
    live_.Say("hub " + hub.Name() + ": " + what + "; trying again (" + std::to_string(retry) +
              " of " + std::to_string(retries) + ")");
  }
}

void UpdateDisplay::ShowOutcome(const Hub& hub, Outcome outcome, const std::string& runs,
                                const Failure* failure) {
  if (style_ != ProgressStyle::Json) return;
  host_.PrintEvent({{"event", "outcome"},
                    {"port_id", hub.shownId},
                    {"outcome", NameOf(outcome)},
                    {"runs", runs},
                    {"error", failure != nullptr ? ToJson(*failure) : nlohmann::ordered_json()}});
}

void UpdateDisplay::Say(const std::string& text) {
  host_.Settings().printsEvents ? host_.Say(text) : live_.Say("qzhid: " + text);
}

}  // namespace qzhid
