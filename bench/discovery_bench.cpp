// Listing and scanning.
#include <algorithm>
#include <functional>
#include <iterator>

#include "QzHidAPI.h"
#include "device/dev.h"
#include "discovery/hid_find.h"
#include "machine.h"
#include "rows.h"

using namespace qzhid;
using namespace qzhid::bench;

namespace {

using Nodes = std::vector<platform::DevInst>;
constexpr std::size_t kTextCapacity = 1024;

// ---- Listing -----------------------------------------------------------------------------------

/// Reads everything about an open node that a listing needs.
void AskProperties(platform::DevInst node) {
  using platform::TextProperty;
  std::wstring text;
  std::string id;
  platform::DevInst parent = 0;
  std::uint32_t address = 0;
  Expect(platform::GetTextProperty(node, TextProperty::HardwareIds, kTextCapacity, text) &&
         platform::GetParent(node, parent) && platform::GetAddressProperty(parent, address) &&
         platform::GetTextProperty(parent, TextProperty::LocationPaths, kTextCapacity, text));
  while (id.find("ROOT_HUB") == std::string::npos) {
    Expect(platform::GetParent(parent, parent) &&
           platform::GetDeviceIdA(parent, kTextCapacity, id));
  }
}

}  // namespace

void qzhid::bench::AskPlatform() {
  platform::NodeSet set;
  platform::DevInst node = 0;
  Nodes nodes;
  Expect(platform::OpenNodeSet(platform::HidClassGuid(), set).ok);
  for (std::uint32_t index = 0; platform::EnumNode(set, index, node); ++index) {
    const platform::HidDevice device = OpenNode(index);
    platform::Event event;
    platform::PreparsedData preparsed;
    platform::HidCaps caps;
    std::string text;
    Expect(platform::CreateReportEvent(event) && platform::GetPreparsedData(device, preparsed) &&
           platform::GetCaps(preparsed, caps) && platform::GetLibraryPath(text) &&
           platform::GetDeviceIdA(node, kTextCapacity, text));
    nodes.push_back(node);
  }
  Expect(platform::CloseNodeSet(set).ok);
  for (const platform::DevInst found : nodes) AskProperties(found);
}

namespace {

void ListOnce(std::uint32_t expected) {
  HidDevRecord* list = nullptr;
  std::uint32_t count = 0;
  if (QZ_ListAllHidDev(&list, &count) == 0 || count != expected) Fail("a listing failed");
  QZ_FreeDevList(list);
}

/// Only the calls of the platform interface if `isBare`.
void CountListings(int times, bool isBare) {
  constexpr unsigned kNodes = 100;
  virtualhub::InstallMachine(DeviceScenario(kNodes));
  for (int i = 0; i < times; ++i) isBare ? AskPlatform() : ListOnce(kNodes);
  virtualhub::UninstallMachine();
}
const CCounted g_listings[] = {{"listing", CountListings, false},
                               {"listing/bare", CountListings, true}};

void Listing(benchmark::State& state, const char* name) {
  constexpr double kMostDeviation = 0.20;
  const std::vector<std::uint32_t> counts{1, 10, 100, 1000};
  std::vector<Pairs> pairs(counts.size());
  while (state.KeepRunning()) {
    for (std::size_t i = 0; i < counts.size(); ++i) {
      virtualhub::InstallMachine(DeviceScenario(counts[i]));
      ListOnce(counts[i]);
      const std::uint32_t runs = 1000 / counts[i];
      for (std::uint32_t run = 0; run < runs; ++run) {
        const double bare = ProcessorSeconds(AskPlatform);
        pairs[i].Add(ProcessorSeconds([&] { ListOnce(counts[i]); }), bare);
      }
      virtualhub::UninstallMachine();
    }
    state.SetIterationTime(pairs.back().subject.back());
  }
  double least = pairs[0].Ratio(), most = least;
  for (std::size_t i = 0; i < counts.size(); ++i) {
    least = std::min(least, pairs[i].Ratio());
    most = std::max(most, pairs[i].Ratio());
    const auto nodes = [&](const std::vector<double>& seconds) {
      return Text(Median(seconds) / counts[i] * 1e6, "us a node of ") + std::to_string(counts[i]);
    };
    // The cost of a node as a multiple of what the platform needs for it.
    const double deviation = (most - least) / (most + least);
    Print({std::string(name) + "/" + std::to_string(counts[i]), nodes(pairs[i].subject),
           nodes(pairs[i].baseline),
           Text(pairs[i].Ratio(), "times, so far within ") + Text(deviation * 100, "%"),
           Text(kMostDeviation * 100, "%")},
          deviation <= kMostDeviation);
  }
}
const CRowRunner g_listingRow{"listing", 15, Listing};

// ---- Devices of other makers -------------------------------------------------------------------

constexpr std::uint32_t kOthers[] = {5, 20, 100};

/// Calls of the platform interface in a piece of work.
std::size_t CountCalls(virtualhub::Machine& machine, const std::function<void()>& work) {
  machine.recorder().Start();
  work();
  machine.recorder().Stop();
  const std::size_t calls = machine.recorder().Of(virtualhub::Record::Kind::Call).size();
  machine.recorder().Clear();
  return calls;
}

/// A machine with one hub and so many HID devices of other makers.
virtualhub::Machine& InstallOthers(std::uint32_t others) {
  std::string devices = R"({"name": "hub", "port": "1"})";
  for (std::uint32_t i = 1; i <= others; ++i) {
    const std::string number = std::to_string(i);
    devices += R"(, {"kind": "other", "vid": "0x1234", "pid": "0x5678", "name": "other)" + number +
               R"(", "port": "2.)" + number + "\"}";
  }
  return virtualhub::InstallMachine(R"({"time": "virtual", "devices": [)" + devices + "]}");
}

/// Prints a row for each number of others: the calls must be exactly those of a machine with the
/// hub alone, and so many for each other device. They are an interface, see docs/architecture.md.
void OtherDevices(benchmark::State& state, const char* name, std::size_t alone, std::size_t each,
                  bool isScan) {
  CHidProperty property{std::make_unique<CHidTransfers>()};
  while (state.KeepRunning()) {
    for (const std::uint32_t others : kOthers) {
      virtualhub::Machine& machine = InstallOthers(others);
      CHidFind finder;
      const auto work = [&] { isScan ? finder.ScanDevs() : ListOnce(1); };
      if (isScan) CRequestCMD::Instance().SetProperty(&property);
      work();
      const std::size_t calls = CountCalls(machine, work);
      std::vector<double> seconds;
      for (int run = 0; run < 21; ++run) seconds.push_back(ProcessorSeconds(work));
      CRequestCMD::Instance().SetProperty(nullptr);
      const std::size_t expected = alone + each * others;
      Print({std::string(name) + "/" + std::to_string(others), Text(Median(seconds) * 1e6, "us"),
             std::to_string(alone) + " and " + std::to_string(each) + " a device",
             std::to_string(calls) + " calls", std::to_string(expected) + " calls"},
            calls == expected);
      virtualhub::UninstallMachine();
    }
    state.SetIterationTime(1);
  }
}
const CRowRunner g_otherRows[] = {{"services/listing", 1, OtherDevices, 20, 13, false},
                                  {"services/scan", 1, OtherDevices, 16, 13, true}};

// ---- Scanning ----------------------------------------------------------------------------------

/// A finder that sees the nodes that it is given, and reads the clock after the enumeration.
class CWatchedFind final : public CUSBDevFind {
 public:
  const platform::Guid* GetClassGuid() override { return &m_Class; }
  bool IsExcludedDev(std::uint32_t node) override { return !m_IsSeen(node); }
  bool EnumAllDevs() override {
    const bool isListed = CUSBDevFind::EnumAllDevs();
    m_Listed = Clock::now();
    return isListed;
  }

  /// Seconds that a scan takes after the enumeration.
  double Scan(std::function<bool(std::uint32_t)> isSeen) {
    m_IsSeen = std::move(isSeen);
    ScanDevs();
    return std::chrono::duration<double>(Clock::now() - m_Listed).count();
  }

 private:
  using Clock = std::chrono::steady_clock;
  const platform::Guid m_Class = platform::HidClassGuid();
  std::function<bool(std::uint32_t)> m_IsSeen;
  Clock::time_point m_Listed;
};

/// The same with the standard library only.
class CBareScan {
 public:
  double Scan(const Nodes& nodes) {
    m_Current = nodes;
    return Seconds([&] {
      std::sort(m_Current.begin(), m_Current.end());
      m_Arrived.clear();
      std::set_difference(m_Current.begin(), m_Current.end(), m_Last.begin(), m_Last.end(),
                          std::back_inserter(m_Arrived));
      m_Removed.clear();
      std::set_difference(m_Last.begin(), m_Last.end(), m_Current.begin(), m_Current.end(),
                          std::back_inserter(m_Removed));
      m_Last = m_Current;
    });
  }

 private:
  Nodes m_Current, m_Last, m_Arrived, m_Removed;
};

/// Scans of 1000 of 2000 nodes; in every second scan `changed` of them are replaced by others.
void Scan(benchmark::State& state, const char* name, std::size_t changed) {
  constexpr std::size_t kSeen = 1000;
  virtualhub::Machine& machine = virtualhub::InstallMachine(DeviceScenario(2 * kSeen));
  Nodes all;
  for (std::size_t i = 0; i < 2 * kSeen; ++i) {
    all.push_back(machine.HidInstance("d" + std::to_string(i)));
  }
  std::sort(all.begin(), all.end());
  IDev device;
  CWatchedFind finder;
  finder.AddDev(&device);
  CBareScan bare;
  std::size_t first = 0;
  Nodes seen;
  const auto subject = [&] {
    first = changed - first;
    seen.assign(all.begin() + static_cast<std::ptrdiff_t>(first),
                all.begin() + static_cast<std::ptrdiff_t>(first + kSeen));
    return finder.Scan(
        [&](std::uint32_t node) { return node >= seen.front() && node <= seen.back(); });
  };
  static_cast<void>(subject());
  static_cast<void>(bare.Scan(seen));
  Pairs pairs;
  while (state.KeepRunning()) {
    const double own = subject();
    pairs.Add(own, bare.Scan(seen));
    state.SetIterationTime(own);
  }
  virtualhub::UninstallMachine();
  PrintRatio(name, pairs, 1, 1.5);
}

const CRowRunner g_scanRows[] = {
    {"scan/none", 2000, Scan, 0}, {"scan/one", 2000, Scan, 1}, {"scan/all", 2000, Scan, 1000}};

}  // namespace
