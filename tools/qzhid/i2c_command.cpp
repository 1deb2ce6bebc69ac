#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include "qzhid/bytes.h"
#include "qzhid/commands.h"
#include "qzhid/hubs.h"
#include "qzhid/options.h"
#include "qzhid/selector.h"

namespace qzhid {

namespace {

constexpr std::uint32_t kReadAtOnce = 128;
constexpr std::uint32_t kWriteAtOnce = 128;
constexpr std::uint32_t kLongestRead = 0x100000;
// An EEPROM does not acknowledge while it stores a page, which takes it some milliseconds.
constexpr int kTries = 20;
constexpr std::chrono::milliseconds kBetweenTries{2};

struct I2cOptions {
  std::optional<std::string> hub;
  std::uint32_t target = 0;
  std::uint32_t memory = 0;
  std::uint32_t memoryBytes = 2;
  std::uint32_t speed = 0;
  std::uint32_t length = 0;
  std::uint32_t page = 8;
  std::string file;
  std::vector<std::string> words;
};

void Configure(Host& host, const OpenHub& open, const I2cOptions& options) {
  open.Do("configuring the I2C master", [&] {
    return host.Api().HidI2CConfig(open.Handle(), static_cast<std::uint8_t>(options.target),
                                   static_cast<std::uint8_t>(options.memoryBytes),
                                   static_cast<std::uint8_t>(options.speed));
  });
}

// The settings last no longer than the handle: this shows whether the library accepts them.
void Config(Host& host, const I2cOptions& options) {
  const Hub hub = PickHub(host, options.hub);
  const OpenHub open(host, hub);
  Configure(host, open, options);
  host.Report({{"hub", ToJson(hub)},
               {"target", options.target},
               {"memory_bytes", options.memoryBytes},
               {"speed", options.speed}},
              "target " + std::to_string(options.target) + ", " +
                  std::to_string(options.memoryBytes) + " memory address bytes, speed " +
                  std::to_string(options.speed) + ": accepted\n");
}

nlohmann::ordered_json Result(const Hub& hub, const I2cOptions& options) {
  return {{"hub", ToJson(hub)}, {"target", options.target}, {"memory", options.memory}};
}

void Read(Host& host, const I2cOptions& options) {
  const Hub hub = PickHub(host, options.hub);
  const OpenHub open(host, hub);
  Configure(host, open, options);
  Bytes bytes(options.length);
  for (std::uint32_t at = 0; at < options.length; at += kReadAtOnce) {
    const std::uint32_t length = std::min(kReadAtOnce, options.length - at);
    open.Do("the I2C read", [&] {
      return host.Api().HidI2CRead(open.Handle(), options.memory + at, bytes.data() + at,
                                   static_cast<std::uint16_t>(length));
    });
  }
  nlohmann::ordered_json object = Result(hub, options);
  object["length"] = options.length;
  if (options.file.empty()) {
    object["data"] = tools::HexText(bytes);
    host.Report(object, HexDump(bytes, options.memory));
    return;
  }
  SaveBytes(options.file, bytes);
  if (options.file == "-") return;
  object["file"] = options.file;
  host.Report(object, std::to_string(bytes.size()) + " bytes read to " + options.file + "\n");
}

std::uint32_t WritePart(Host& host, const OpenHub& open, std::uint32_t memory, std::uint8_t* part,
                        std::uint32_t length, bool waits) {
  std::uint32_t status = 0;
  for (int tries = waits ? kTries : 1; tries > 0; --tries) {
    status =
        host.Api().HidI2CWrite(open.Handle(), memory, part, static_cast<std::uint16_t>(length));
    if (status == 0) break;
    std::this_thread::sleep_for(kBetweenTries);
  }
  return status;
}

void Write(Host& host, const I2cOptions& options) {
  Bytes bytes = TakeBytes(options.words, options.file);
  const Hub hub = PickHub(host, options.hub);
  const OpenHub open(host, hub);
  Configure(host, open, options);
  const auto size = static_cast<std::uint32_t>(bytes.size());
  for (std::uint32_t at = 0; at < size;) {
    const std::uint32_t memory = options.memory + at;
    const std::uint32_t length = std::min(options.page - memory % options.page, size - at);
    open.Do("the I2C write after " + std::to_string(at) + " written bytes",
            [&] { return WritePart(host, open, memory, bytes.data() + at, length, at > 0); });
    at += length;
  }
  nlohmann::ordered_json object = Result(hub, options);
  object["length"] = size;
  host.Report(object, std::to_string(size) + " bytes written\n");
}

CLI::App* Add(CLI::App& group, Host& host, const std::string& name, const std::string& meaning,
              const std::shared_ptr<I2cOptions>& options, void (*work)(Host&, const I2cOptions&)) {
  CLI::App* command = group.add_subcommand(name, meaning);
  AddHub(*command, options->hub);
  command
      ->add_option("--target", options->target,
                   "address as the hub's I2C master takes it, required")
      ->required()
      ->option_text("ADDRESS")
      ->check(CLI::Range(1u, 0xFFu));
  command
      ->add_option("--memory-bytes", options->memoryBytes, "bytes of a memory address, default 2")
      ->option_text("N")
      ->check(CLI::Range(0u, 5u));
  command->add_option("--speed", options->speed, "speed code 0 (default) to 2")
      ->option_text("CODE")
      ->check(CLI::Range(0u, 2u));
  command->callback([&host, options, work] { work(host, *options); });
  return command;
}

CLI::App* AddTransfer(CLI::App& group, Host& host, const std::string& name,
                      const std::string& meaning, const std::shared_ptr<I2cOptions>& options,
                      void (*work)(Host&, const I2cOptions&)) {
  CLI::App* command = Add(group, host, name, meaning, options, work);
  command->add_option("--memory", options->memory, "address in the target's memory, default 0")
      ->option_text("ADDRESS");
  return command;
}

}  // namespace

void AddI2cCommand(CLI::App& app, Host& host) {
  CLI::App* group = app.add_subcommand("i2c", "reach I2C targets behind the hub");
  group->require_subcommand(1);
  const auto read = std::make_shared<I2cOptions>();
  CLI::App* reading = AddTransfer(*group, host, "read", "read from a target", read, Read);
  reading->add_option("--length", read->length, "number of bytes, required")
      ->required()
      ->option_text("N")
      ->check(CLI::Range(1u, kLongestRead));
  reading->add_option("--out", read->file, "write them to this file, - for standard output")
      ->option_text("FILE");
  AddExamples(*reading,
              {"qzhid i2c read --target 0xA0 --length 32",
               "qzhid i2c read --target 0xA0 --memory 0x40 --length 64 --out eeprom.bin"});
  const auto write = std::make_shared<I2cOptions>();
  CLI::App* writing = AddTransfer(*group, host, "write", "write to a target", write, Write);
  AddData(*writing, write->words, write->file);
  writing->add_option("--page", write->page, "the target's page in bytes, default 8, always safe")
      ->option_text("N")
      ->check(CLI::Range(1u, kWriteAtOnce));
  AddExamples(*writing, {"qzhid i2c write --target 0xA0 --memory 0x40 01a0 ff",
                         "qzhid i2c write --target 0xA0 --page 64 --file eeprom.bin"});
  CLI::App* configuring =
      Add(*group, host, "config", "check settings; each read and write makes its own",
          std::make_shared<I2cOptions>(), Config);
  AddExamples(*configuring, {"qzhid i2c config --target 0xA0 --memory-bytes 1 --speed 2"});
  AddExamples(*group, {"qzhid i2c read --target 0xA0 --length 32"});
}

}  // namespace qzhid
