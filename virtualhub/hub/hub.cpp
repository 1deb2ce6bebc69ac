#include "virtualhub/hub/hub.h"

#include <algorithm>
#include <stdexcept>

namespace virtualhub {

namespace {

constexpr std::size_t kHistorySize = 12;

FlashBank MakeBank(std::size_t size, const BankConfig& config, std::uint32_t generation) {
  const ByteView image = config.image ? ByteView(*config.image) : ByteView();
  if (image.size() > size || config.cutAfter.value_or(0) > image.size()) {
    throw std::invalid_argument("image does not fit the flash bank");
  }
  if (image.empty()) return FlashBank(size);
  if (!config.cutAfter) return {size, config.image, generation};
  FlashBank bank(size);
  bank.Program(0, image.first(*config.cutAfter), generation);
  bank.CutSession();
  return bank;
}

std::unique_ptr<I2cTarget> MakeTarget(const EepromConfig& config) {
  return std::make_unique<Eeprom>(config);
}
std::unique_ptr<I2cTarget> MakeTarget(const BlockTargetConfig& config) {
  return std::make_unique<BlockTarget>(config);
}

}  // namespace

Hub::Hub(const HubConfig& config)
    : config_(config), bridgeFlash_(config.bridgeFlash), gpio_(config.gpioLevels) {
  banks_.push_back(MakeBank(config.bankSize, config.image, 2));
  if (config.dualBank) banks_.push_back(MakeBank(config.bankSize, config.secondImage, 1));
  for (const auto& [slave, target] : config.i2cTargets) {
    i2cTargets_[slave] = std::visit([](const auto& kind) { return MakeTarget(kind); }, target);
  }
  // What the banks no longer need of the initial contents is to be freed.
  config_.image = config_.secondImage = {};
  Boot(config.running);
}

void Hub::Boot(Code wanted) {
  // Without any complete image bank 0 becomes the one to write.
  active_ = banks_.size() - 1;
  bool bootable = false;
  for (std::size_t i = 0; i < banks_.size(); ++i) {
    if (!banks_[i].HoldsCompleteImage()) continue;
    const bool newer = banks_[i].history().generation > banks_[active_].history().generation;
    if (!bootable || newer) active_ = i;
    bootable = true;
  }
  code_ = bootable ? wanted : Code::Rom;
  enable_ = 0;
  highClock_ = false;
}

FlashBank& Hub::TargetBank() { return config_.dualBank ? banks_[1 - active_] : banks_[0]; }

bool Hub::MayChangeFlash() const { return config_.dualBank || code_ == Code::Rom; }

void Hub::CutSessions() {
  for (FlashBank& bank : banks_) bank.CutSession();
}

void Hub::PowerLoss() {
  CutSessions();
  Boot(Code::Flash);
}

void Hub::Unplug() {
  CutSessions();
  enable_ = 0;
}

ImageIdentity Hub::Identity() const {
  if (code_ == Code::Flash) {
    if (const auto identity = banks_[active_].Identity()) return *identity;
  }
  return {.vid = config_.rom.vid, .pid = config_.rom.pid, .version = config_.rom.version};
}

Eeprom* Hub::eeprom(std::uint8_t slave) {
  const auto found = i2cTargets_.find(slave);
  return found == i2cTargets_.end() ? nullptr : dynamic_cast<Eeprom*>(found->second.get());
}

BlockTarget* Hub::blockTarget(std::uint8_t slave) {
  const auto found = i2cTargets_.find(slave);
  return found == i2cTargets_.end() ? nullptr : dynamic_cast<BlockTarget*>(found->second.get());
}

Bytes Hub::SaveFlash() const {
  Bytes saved;
  for (const FlashBank& bank : banks_) {
    const FlashBank::History& history = bank.history();
    std::array<std::uint8_t, kHistorySize> head{};
    PutLittleEndian32(head, 0, history.writtenTo);
    PutLittleEndian32(head, 4, history.generation);
    head[8] = history.sessionOpen ? 1 : 0;
    head[9] = history.cut ? 1 : 0;
    saved.insert(saved.end(), head.begin(), head.end());
    saved.resize(saved.size() + bank.size());
    bank.Read(0, MutableBytes(saved).last(bank.size()));
  }
  return saved;
}

bool Hub::LoadFlash(ByteView saved) {
  const std::size_t bankLength = kHistorySize + config_.bankSize;
  if (saved.size() != banks_.size() * bankLength) return false;
  for (FlashBank& bank : banks_) {
    bank.Restore(saved.subspan(kHistorySize, config_.bankSize),
                 {.writtenTo = LittleEndian32(saved, 0),
                  .generation = LittleEndian32(saved, 4),
                  .sessionOpen = saved[8] != 0,
                  .cut = saved[9] != 0});
    saved = saved.subspan(bankLength);
  }
  PowerLoss();
  return true;
}

}  // namespace virtualhub
