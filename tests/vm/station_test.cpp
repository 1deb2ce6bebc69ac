// A factory station: units come one after the other, and each is written once.
#include <gmock/gmock.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "vm/host.h"

namespace qzhid::vm {
namespace {

using nlohmann::json;
using ::testing::ElementsAreArray;

constexpr std::size_t kBays = 4, kUnits = 20;
// Special units: one with a fault that the next try overcomes, one with a fault that stays, one of
// another vendor, and one that is pulled out and put back while it is written.
constexpr std::size_t kStalls = 6, kBroken = 9, kForeign = 11, kPulled = 14;

const std::string kFolder = "/tmp/station/";

std::string NameOf(std::size_t unit) { return "unit-" + std::to_string(unit); }
std::string BayOf(std::size_t unit) { return "bay " + std::to_string(unit % kBays + 1) + ": "; }

bool IsSpecial(std::size_t unit) {
  return unit == kStalls || unit == kBroken || unit == kForeign || unit == kPulled;
}
// These may not be written, which also saves time here.
bool RunsImage(std::size_t unit) { return !IsSpecial(unit) && unit >= kBays && unit % 8 != 0; }

json Device(std::size_t unit) {
  // Long enough to be pulled out in the middle, or hardly any time. A hub that is away for less
  // than a scan takes would be waited for long after it has returned.
  const int latency = unit == kPulled ? 4000 : 0;
  return {{"name", NameOf(unit)},
          {"port", std::to_string(unit % kBays + 1)},
          {"plugged", unit < kBays},
          {"image",
           {{"vid", unit == kForeign ? 0x1234 : 0x2E7C},
            {"version", RunsImage(unit) ? 0x0210 : 0x0102}}},
          {"timing",
           {{"latency_us", latency},
            {"erase_ms", 1},
            {"leave_ms", 1},
            {"return_ms", 1000},
            {"ready_ms", 0}}}};
}

std::string Scenario() {
  json devices = json::array();
  for (std::size_t unit = 0; unit < kUnits; ++unit) devices.push_back(Device(unit));
  const auto stall = [](std::size_t unit, int count) {
    return json{{"on", "request"}, {"request", "40/C8"},     {"nth", 20},
                {"count", count},  {"device", NameOf(unit)}, {"action", "stall"}};
  };
  return json{{"control", kFolder + "control"},
              {"state_folder", kFolder + "state"},
              {"devices", devices},
              {"faults", {stall(kStalls, 1), stall(kBroken, 0)}}}
      .dump();
}

std::size_t Count(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos; ++at) ++count;
  return count;
}

/// What is recorded of a unit, whether its flash has the image, and whether it was written once for
/// each try at most. (Writing begins a new generation of the flash, except when it goes on where a
/// fault has stopped it. A try of any unit may fail because other hubs come and go meanwhile.)
std::string Summary(const json& record, std::size_t unit) {
  constexpr int kAtFirst = 2;
  const std::string flash = ReadFile(kFolder + "state/" + NameOf(unit) + ".flash");
  const int written = flash.empty() ? 0 : static_cast<unsigned char>(flash.at(12)) - kAtFirst;
  const int retries = record["retries"].get<int>();
  std::ostringstream text;
  text << NameOf(unit) << ' ' << record["outcome"].get<std::string>() << ' '
       << record["from"].get<std::string>() << " -> " << record["runs"].get<std::string>();
  if (written > 0) text << ", written";
  if (written > 1 + retries) text << " too often";
  if (IsSpecial(unit) && retries > 0) text << ", tried again";
  if (flash.find(ReadFile(kFolder + "image.bin")) != std::string::npos) text << ", image";
  return text.str();
}

std::string Expected(std::size_t unit) {
  std::string expected = "updated 1.02 -> 2.10, written, image";
  if (RunsImage(unit)) expected = "current 2.10 -> 2.10";
  if (unit == kStalls || unit == kPulled) {
    expected = "updated 1.02 -> 2.10, written, tried again, image";
  }
  if (unit == kBroken) expected = "loader 1.02 -> loader, written, tried again";
  if (unit == kForeign) expected = "refused 1.02 -> 1.02";
  return NameOf(unit) + ' ' + expected;
}

class StationTest : public ::testing::Test {
 protected:
  StationTest() {
    std::filesystem::remove_all(kFolder);
    std::filesystem::create_directory(kFolder);
  }
  std::vector<json> Records() const {
    std::vector<json> records;
    std::istringstream lines(ReadFile(kFolder + "records"));
    for (std::string line; std::getline(lines, line);) records.push_back(json::parse(line));
    return records;
  }
  std::vector<json> RecordsOf(std::size_t bay) const {
    std::vector<json> records = Records();
    std::erase_if(records, [&](const json& one) { return one["bay"] != std::to_string(bay + 1); });
    return records;
  }
};

/// One bay: its units go in and out one after the other.
class Worker {
 public:
  Worker(std::size_t bay, const std::function<void(const std::string&)>& act)
      : unit_(bay), act_(act) {}

  /// Does what is to be done now; false when its last unit is done.
  bool Work(const std::string& shown, std::size_t records) {
    const std::size_t done = unit_ / kBays;
    if (unit_ == kPulled) Pull(shown);
    if (records <= done) return true;
    if (unit_ + kBays >= kUnits) return false;
    if (!isEmpty_) {
      emptied_ = Count(shown, BayOf(unit_) + "unplugged\n");
      act_("unplug " + NameOf(unit_));
    }
    isEmpty_ = true;
    if (Count(shown, BayOf(unit_) + "unplugged\n") == emptied_) return true;
    writing_ = Count(shown, BayOf(unit_) + "writing\n");
    unit_ += kBays;
    isEmpty_ = false;
    act_("plug " + NameOf(unit_));
    return true;
  }

 private:
  void Pull(const std::string& shown) {
    if (pulls_ == 0 && Count(shown, BayOf(unit_) + "writing\n") > writing_) {
      act_("unplug " + NameOf(unit_));
      pulls_ = 1;
    }
    if (pulls_ == 1 && shown.find(BayOf(unit_) + "waiting for the hub") != std::string::npos) {
      act_("plug " + NameOf(unit_));
      pulls_ = 2;
    }
  }

  std::size_t unit_;
  const std::function<void(const std::string&)>& act_;
  bool isEmpty_ = false;
  std::size_t emptied_ = 0, writing_ = 0;  // lines so far
  int pulls_ = 0;
};

TEST_F(StationTest, TwentyUnitsInFourBaysAreEachWrittenAndRecordedOnce) {
  const std::string image = kFolder + "image.bin";
  RunProgram("qzhub image --size 32680 --version 2.10 --out " + image);
  Attached attached(Scenario(), kBays);
  Program station("qzhid station --image " + image + " --record " + kFolder + "records" +
                  " --retries 4 --bay 1=1-1 --bay 2=1-2 --bay 3=1-3 --bay 4=1-4");
  const std::function<void(const std::string&)> act = [](const std::string& line) {
    std::ofstream(kFolder + "control", std::ios::app) << line + '\n';
  };
  std::vector<Worker> workers;
  for (std::size_t bay = 0; bay < kBays; ++bay) workers.emplace_back(bay, act);
  const auto isOver = [&] {
    const std::string shown = station.Output(), recorded = ReadFile(kFolder + "records");
    std::size_t busy = 0;
    for (std::size_t bay = 0; bay < kBays; ++bay) {
      if (workers[bay].Work(shown, Count(recorded, R"("bay":")" + std::to_string(bay + 1) + '"')))
        ++busy;
    }
    return busy == 0;
  };
  // Two minutes, where the processor is emulated and has nothing else to do.
  ASSERT_TRUE(Eventually(isOver, std::chrono::seconds(480))) << station.Output();

  std::vector<std::string> summaries, expected;
  for (std::size_t unit = 0; unit < kUnits; ++unit) {
    const std::vector<json> records = RecordsOf(unit % kBays);
    summaries.push_back(Summary(records.at(unit / kBays), unit));
    expected.push_back(Expected(unit));
  }
  EXPECT_THAT(summaries, ElementsAreArray(expected)) << station.Output();
  EXPECT_EQ(kUnits, Records().size());

  // While nothing changes, it opens no device.
  const int opened = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  for (const std::string& name : HidrawDevices()) {
    ASSERT_LE(0, inotify_add_watch(opened, ("/dev/" + name).c_str(), IN_OPEN));
  }
  const auto wasOpened = [opened] {
    std::array<char, 4096> events{};
    bool isAny = false;
    while (read(opened, events.data(), events.size()) > 0) isAny = true;
    return isAny;
  };
  const auto hasRested = [&] {
    wasOpened();
    std::this_thread::sleep_for(std::chrono::seconds(2));
    return !wasOpened();
  };
  ASSERT_TRUE(Eventually(hasRested)) << "it still looks at the last hubs";
  std::this_thread::sleep_for(std::chrono::seconds(10));
  EXPECT_FALSE(wasOpened()) << "a device file was opened";
  close(opened);

  // A hub that leaves for a moment is no new unit; one that was unplugged has left its bay.
  const std::size_t arrivals = attached.Ports("unit-16").size();
  act("power-loss unit-16");
  ASSERT_TRUE(Eventually([&] { return attached.Ports("unit-16").size() > arrivals; }));
  const std::size_t shown = Count(station.Output(), "bay 2: unplugged\n");
  act("unplug unit-17");
  EXPECT_TRUE(Eventually([&] { return Count(station.Output(), "bay 2: unplugged\n") > shown; }));
  station.Stop();
  EXPECT_EQ(kUnits, Records().size());
}

}  // namespace
}  // namespace qzhid::vm
