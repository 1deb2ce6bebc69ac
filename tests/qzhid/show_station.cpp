// show_station COMMAND...: what a station's displays make of the views in a JSON array on standard
// input. Commands: "screen COLUMNS LINES ABILITIES", "page WRITTEN GOOD_FOR ENDED", "events".
#include <iostream>
#include <nlohmann/json.hpp>

#include "qzhid/station_events.h"
#include "qzhid/station_page.h"
#include "qzhid/station_tiles.h"

namespace qzhid {

namespace {

BayTile ReadBay(const nlohmann::json& json) {
  constexpr std::array kStates{"empty", "label", "working", "passed", "failed"};
  BayTile bay;
  const std::string state = json.value("state", "empty");
  bay.state =
      static_cast<BayState>(std::find(kStates.begin(), kStates.end(), state) - kStates.begin());
  bay.percent = json.value("percent", -1);
  bay.retries = json.value("retries", 0);
  if (json.contains("left")) bay.secondsLeft = json["left"].get<int>();
  const auto text = [&](const char* name, std::string& to) { to = json.value(name, ""); };
  text("name", bay.name), text("port_id", bay.portId), text("label", bay.label);
  text("activity", bay.activity), text("from", bay.from), text("runs", bay.runs);
  text("outcome", bay.outcome), text("reason", bay.reason), text("next", bay.next);
  return bay;
}

StationView ReadView(const nlohmann::json& json) {
  StationView view{{},
                   json.value("image", ""),
                   json.value("version", ""),
                   json.value("passed", 0u),
                   json.value("failed", 0u),
                   json.value("rate", 0.0),
                   json.value("stopped", ""),
                   json.value("ending", false)};
  for (const auto& bay : json["bays"]) view.bays.push_back(ReadBay(bay));
  return view;
}

void ShowViews(const std::vector<StationView>& views, const std::vector<std::string>& words) {
  if (words[0] == "screen") {
    const TerminalAbilities abilities{words[3].find("colours") != std::string::npos,
                                      words[3].find("utf8") != std::string::npos};
    const system::TerminalSize size{std::stoul(words[1]), std::stoul(words[2])};
    for (const std::string& line : DrawTiles(views[0], words.at(4), size, abilities)) {
      std::cout << line << '\n';
    }
  } else if (words[0] == "page") {
    const std::chrono::system_clock::time_point written(
        std::chrono::milliseconds(std::stoll(words[1])));
    std::cout << StationPage(views[0],
                             {written, std::chrono::seconds(std::stoi(words[2])), words[3] == "1"});
  } else {
    for (std::size_t i = 1; i < views.size(); ++i) {
      for (const StationEvent& event : EventsBetween(views[i - 1], views[i])) {
        std::cout << (event.isFailure ? "! " : "  ") << event.text << '\n';
      }
    }
  }
}

}  // namespace

}  // namespace qzhid

int main(int count, char** arguments) {
  std::vector<qzhid::StationView> views;
  for (const auto& json : nlohmann::json::parse(std::cin)) views.push_back(qzhid::ReadView(json));
  qzhid::ShowViews(views, {arguments + 1, arguments + count});
}
