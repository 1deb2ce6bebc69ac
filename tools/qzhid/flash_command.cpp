#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include "qzhid/bytes.h"
#include "qzhid/commands.h"
#include "qzhid/hubs.h"
#include "qzhid/options.h"
#include "qzhid/patience.h"
#include "qzhid/selector.h"

namespace qzhid {

namespace {

constexpr std::uint32_t kAtOnce = 128;
constexpr std::uint8_t kBusy = 1;
constexpr std::chrono::seconds kLongestWait{60};
constexpr std::chrono::milliseconds kPollEvery{1};

struct FlashOptions {
  std::optional<std::string> hub;
  std::uint32_t address = 0;
  bool isAgreed = false;
  std::string file;
  std::vector<std::string> words;
};

using Transfer = decltype(Library::HidI2CBlockWriteFlash);

std::uint8_t Status(Host& host, const OpenHub& open) {
  std::uint8_t status = 0;
  open.Do("reading the flash's status",
          [&] { return host.Api().HidI2CBlockStatus(open.Handle(), &status); });
  return status;
}

void AwaitReady(Host& host, const Hub& hub, const OpenHub& open) {
  const Patience patience(host, "the flash behind hub " + hub.Name());
  const auto end = std::chrono::steady_clock::now() + kLongestWait;
  while (Status(host, open) == kBusy) {
    if (std::chrono::steady_clock::now() > end) {
      throw Failure(Exit::Failed, "the flash is still busy after a minute", hub.Name(),
                    "see 'qzhid flash status' and repeat the command");
    }
    std::this_thread::sleep_for(kPollEvery);
  }
}

void Send(Host& host, const FlashOptions& options, Transfer transfer, const std::string& done) {
  Bytes bytes = TakeBytes(options.words, options.file);
  const Hub hub = PickHub(host, options.hub);
  const OpenHub open(host, hub);
  const auto size = static_cast<std::uint32_t>(bytes.size());
  for (std::uint32_t at = 0; at < size; at += kAtOnce) {
    AwaitReady(host, hub, open);
    open.Do("the transfer after " + std::to_string(at) + " bytes", [&] {
      return transfer(open.Handle(), options.address + at, bytes.data() + at,
                      static_cast<std::uint16_t>(std::min(kAtOnce, size - at)));
    });
  }
  AwaitReady(host, hub, open);
  host.Report({{"hub", ToJson(hub)}, {"address", options.address}, {"length", size}},
              std::to_string(size) + " bytes " + done + "\n");
}

void Erase(Host& host, const FlashOptions& options) {
  const Hub hub = PickHub(host, options.hub);
  if (!options.isAgreed) {
    Confirm("erase the whole flash behind hub " + hub.Name() + "?", hub.Name());
  }
  const OpenHub open(host, hub);
  AwaitReady(host, hub, open);
  open.Do("erasing the flash", [&] { return host.Api().HidI2CBlockEraseFlash(open.Handle()); });
  AwaitReady(host, hub, open);
  host.Report({{"hub", ToJson(hub)}, {"erased", true}}, "the flash is erased\n");
}

void ShowStatus(Host& host, const FlashOptions& options) {
  const Hub hub = PickHub(host, options.hub);
  const OpenHub open(host, hub);
  const std::uint8_t status = Status(host, open);
  host.Report(
      {{"hub", ToJson(hub)}, {"status", status}},
      "the flash's status is " + std::to_string(status) + (status == kBusy ? ": busy\n" : "\n"));
}

CLI::App* Add(CLI::App& group, const std::string& name, const std::string& meaning,
              FlashOptions& options) {
  CLI::App* command = group.add_subcommand(name, meaning);
  AddHub(*command, options.hub);
  return command;
}

void AddSender(CLI::App& group, Host& host, const std::string& name, const std::string& meaning,
               Transfer Library::*transfer, const std::string& done) {
  const auto options = std::make_shared<FlashOptions>();
  CLI::App* command = Add(group, name, meaning, *options);
  command->add_option("--address", options->address, "byte address in the flash, required")
      ->option_text("ADDRESS")
      ->required();
  AddData(*command, options->words, options->file);
  AddExamples(*command, {"qzhid flash " + name + " --address 0x1000 01a0ff",
                         "qzhid flash " + name + " --address 0 --file data.bin"});
  command->callback(
      [&host, options, transfer, done] { Send(host, *options, host.Api().*transfer, done); });
}

}  // namespace

void AddFlashCommand(CLI::App& app, Host& host) {
  CLI::App* group = app.add_subcommand("flash", "reach the flash memory behind the hub");
  group->require_subcommand(1);
  AddSender(*group, host, "write", "write bytes", &Library::HidI2CBlockWriteFlash, "written");
  AddSender(*group, host, "stage", "stage bytes", &Library::Stage_Flash, "staged");
  const auto erase = std::make_shared<FlashOptions>();
  CLI::App* erasing = Add(*group, "erase", "erase the whole flash", *erase);
  erasing->add_flag("-y,--yes", erase->isAgreed, "do not ask");
  erasing->callback([&host, erase] { Erase(host, *erase); });
  AddExamples(*erasing, {"qzhid flash erase", "qzhid flash erase --hub 1-3.1 --yes"});
  const auto status = std::make_shared<FlashOptions>();
  CLI::App* showing = Add(*group, "status", "show the flash's status", *status);
  showing->callback([&host, status] { ShowStatus(host, *status); });
  AddExamples(*showing, {"qzhid flash status"});
  AddExamples(*group, {"qzhid flash write --address 0x1000 01a0ff", "qzhid flash status"});
}

}  // namespace qzhid
