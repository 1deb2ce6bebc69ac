// Updates that meet one fault, wherever it may strike: the host learns of it, and the hub can be
// updated again.
#include "fault_sweep.h"

namespace qzhid::test {
namespace {

const Start kStarts[] = {
    kFlashStart,
    {"ROM code", R"(, "running": "rom", "image": {"size": 32768})"},
    {"two banks", R"(, "dual_bank": true, "second_image": {"version": "0x0100", "size": 32768})",
     true},
    {"two banks, validating",
     R"(, "dual_bank": true, "isp_supported": true, "second_image": {"version": "0x0100", "size": 32768})",
     true},
    kSameNumbersStart};

/// What the hub takes without carrying it out can pass for a whole update: the check of a hub that
/// does not validate images accepts contents that differ, and nobody asks which code the hub runs
/// after the reset.
bool MayPass(const FaultKind& kind, std::uint16_t key, bool isValidating) {
  if (kind.fault.action != Fault::Action::LoseWrite) return false;
  return key == 0x40E9 || (!isValidating && (key == 0x40C8 || key == 0x40E8));
}

class UpdateSweep : public FaultSweep,
                    public ::testing::WithParamInterface<std::tuple<std::size_t, std::size_t>> {};

TEST_P(UpdateSweep, EndsInAClearResultAndAHubThatCanBeUpdated) {
  const auto [startIndex, kindIndex] = GetParam();
  const bool isValidating = startIndex == 3;
  const Job job = {"update", Job::Opens::AndCloses, [this](void* handle) { return Update(handle); },
                   [this] { return RunsImage(); },
                   [=](const FaultKind& struck, std::uint16_t key) {
                     return MayPass(struck, key, isValidating);
                   }};
  Sweep(kStarts[startIndex], job, kFaultKinds[kindIndex]);
}

std::string NameOf(const ::testing::TestParamInfo<UpdateSweep::ParamType>& of) {
  const auto [start, kind] = of.param;
  std::string name = std::string(kStarts[start].name) + "_" + kFaultKinds[kind].name;
  std::erase(name, ',');
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
}

/// Every start with every kind; numbers that stay the same, with the kinds where that can matter.
std::vector<UpdateSweep::ParamType> Sweeps() {
  std::vector<UpdateSweep::ParamType> sweeps;
  for (std::size_t start = 0; start < std::size(kStarts); ++start) {
    for (std::size_t kind = 0; kind < kFaultKinds.size(); ++kind) {
      if (start < 4 || ComesBackAsItWas(kFaultKinds[kind].fault)) sweeps.emplace_back(start, kind);
    }
  }
  return sweeps;
}

INSTANTIATE_TEST_SUITE_P(Faults, UpdateSweep, ::testing::ValuesIn(Sweeps()), NameOf);

}  // namespace
}  // namespace qzhid::test
