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
  if (style_ == ProgressStyle::Json) {
    Print({{"event", "progress"},
           {"port_id", hub.shownId},
           {"phase", progress.PhaseName()},
           {"percent", progress.Percent()}});
  } else if (!isLive_ && !host_.Settings().isQuiet) {
    std::cerr << "hub " + hub.Name() + ": " + progress.Text() + '\n' << std::flush;
  }
}

void UpdateDisplay::ShowRetry(const Hub& hub, const std::string& what, int retry, int retries) {
  if (style_ == ProgressStyle::Json) {
    Print({{"event", "retry"}, {"port_id", hub.shownId}, {"what", what}, {"retry", retry}});
  } else if (!host_.Settings().isQuiet) {
    Say("hub " + hub.Name() + ": " + what + "; trying again (" + std::to_string(retry) + " of " +
        std::to_string(retries) + ")");
  }
}

void UpdateDisplay::ShowOutcome(const Hub& hub, Outcome outcome, const std::string& runs,
                                const Failure* failure) {
  if (style_ != ProgressStyle::Json) return;
  Print({{"event", "outcome"},
         {"port_id", hub.shownId},
         {"outcome", NameOf(outcome)},
         {"runs", runs},
         {"error", failure != nullptr ? ToJson(*failure) : nlohmann::ordered_json()}});
}

void UpdateDisplay::Say(const std::string& text) {
  if (style_ == ProgressStyle::Json) {
    Print({{"event", "message"}, {"text", text}});
  } else {
    live_.Say(text);
  }
}

void UpdateDisplay::Print(const nlohmann::ordered_json& event) const {
  std::cerr << event.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + '\n'
            << std::flush;
}

}  // namespace qzhid
