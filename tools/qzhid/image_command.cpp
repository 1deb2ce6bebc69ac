#include <CLI/CLI.hpp>
#include <memory>

#include "qzhid/commands.h"
#include "qzhid/hubs.h"
#include "qzhid/image.h"
#include "qzhid/options.h"

namespace qzhid {

namespace {

void ShowImage(Host& host, const std::string& path) {
  const Image image = ReadImage(path);
  host.Report(ToJson(image), Table({{"file", image.path},
                                    {"VID", IdText(image.vid)},
                                    {"product id", IdText(image.pid)},
                                    {"chip code", IdText(image.chip)},
                                    {"version", VersionText(image.version)},
                                    {"size", std::to_string(image.bytes.size()) + " bytes"},
                                    {"SHA-256", image.sha256}}));
}

}  // namespace

void AddImageCommand(CLI::App& app, Host& host) {
  CLI::App* command = app.add_subcommand("image", "show what a firmware image file is for");
  const auto path = std::make_shared<std::string>();
  command->add_option("FILE", *path, "the image file")->required();
  AddExamples(*command, {"qzhid image new.bin", "qzhid image new.bin --json"});
  command->callback([&host, path] { ShowImage(host, *path); });
}

}  // namespace qzhid
