#include "qzhid/explain/log_jobs.h"

#include <algorithm>
#include <utility>

namespace qzhid {

namespace {

using CallTitle = std::pair<const char*, const char*>;

constexpr CallTitle kTitles[] = {
    {kListCall, "list hubs"},
    {"QZ_ListAllHidDevByVIDPID", "list devices by ids"},
    {kOpenCall, "open"},
    {kCloseCall, "close"},
    {kUpdateCall, "update"},
    {kReadImageCall, "read the version of an image"},
    {kReadVersionCall, "read the version of the hub"},
    {"QZ_GetHidBinFileVIDPID", "read the ids of an image"},
    {"QZ_GetHubVIDPIDFromHidDevice", "read the ids of the hub"},
    {"QZ_HidI2CConfig", "configure the I2C master"},
    {"QZ_HidI2CWrite", "write to an I2C target"},
    {"QZ_HidI2CRead", "read from an I2C target"},
    {"QZ_HidI2CRead2", "read from an I2C target"},
    {"QZ_HidI2CBlockWriteFlash", "write to the bridge's flash"},
    {"QZ_Stage_Flash", "stage data for the bridge's flash"},
    {"QZ_Write_Byte", "stage data for the bridge's flash"},
    {"QZ_HidI2CBlockEraseFlash", "erase the bridge's flash"},
    {"QZ_HidI2CBlockStatus", "read the status of the bridge's flash"},
    {"QZ_MST_HidI2CBlock", "send a block command"},
    {"QZ_HidGPIOR", "read a GPIO line"},
    {"QZ_HidGPIOW", "drive a GPIO line"},
    {"QZ_HidSetHubGPIO", "set a GPIO line"},
};

constexpr std::uint64_t kMostJobs = 2000;      // that are kept, while they went well
constexpr std::uint64_t kMostFailures = 5000;  // and otherwise

}  // namespace

bool IsListing(const std::string& call) { return call.starts_with(kListCall); }

const char* NameOf(Step step) {
  constexpr std::array kNames{"unknown step",
                              "load the image",
                              "find the hub",
                              "read what it runs",
                              "reset into the loader",
                              "wait for the loader",
                              "erase",
                              "write",
                              "check",
                              "start the firmware",
                              "wait for the firmware",
                              "list",
                              "raise the frequency",
                              "read the version",
                              "request",
                              "finish"};
  return kNames[static_cast<std::size_t>(step)];
}

bool IsWait(Step step) {
  return step == Step::Find || step == Step::LoaderBack || step == Step::FirmwareBack;
}

const char* NameOf(Result result) {
  constexpr std::array kNames{"done", "nothing found", "failed", "unfinished", "unclear"};
  return kNames[static_cast<std::size_t>(result)];
}

Step FailedStep(const Job& job) {
  if (job.trouble && job.trouble->step != Step::None) return job.trouble->step;
  return job.steps.empty() ? Step::None : job.steps.back().step;
}

std::string TitleOf(const Job& job) {
  if (!job.title.empty()) return job.title;
  if (job.call.empty()) return "a call that the log does not name";
  const auto* const found =
      std::find_if(std::begin(kTitles), std::end(kTitles),
                   [&](const CallTitle& title) { return job.call == title.first; });
  return found != std::end(kTitles) ? found->second : job.call;
}

void JobKeeper::Keep(Session& session, Job&& job) {
  const bool isFine = job.result == Result::Done || job.result == Result::Empty;
  if (kept_ >= (isFine ? kMostJobs : kMostFailures)) {
    ++session.omittedJobs;
    if (!isFine) ++session.omittedProblems;
    return;
  }
  ++kept_;
  session.jobs.push_back(std::move(job));
}

}  // namespace qzhid
