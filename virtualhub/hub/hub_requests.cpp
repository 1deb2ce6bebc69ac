// The vendor requests of the hub, one function each.
#include <algorithm>

#include "virtualhub/hub/hub.h"

namespace virtualhub {

namespace {

constexpr std::uint16_t kEnableIndex = 0x2E7C;
constexpr std::uint16_t kResetCodeValue = 0x0101;
constexpr std::size_t kStatusSize = 20;

constexpr std::uint8_t kIspSupported = 0x02;  // status byte 13
constexpr std::uint8_t kFlashCode = 0x02;     // status byte 15
constexpr std::uint8_t kDualBank = 0x80;      // status byte 15

constexpr std::uint8_t kI2cConfigured = 0x80;  // third byte of the I2C configuration
constexpr std::uint8_t kFastestI2c = 2;
constexpr std::size_t kMaxI2cAddress = 5;

std::uint8_t High(std::uint16_t value) { return static_cast<std::uint8_t>(value >> 8); }
std::uint8_t Low(std::uint16_t value) { return static_cast<std::uint8_t>(value); }

// The memory address of an I2C transfer: bytes 2 to 5 of the header, then byte 7.
struct I2cAddress {
  explicit I2cAddress(const VendorRequest& request)
      : bytes{request.header[2], request.header[3], request.header[4], request.header[5],
              request.header[7]},
        count(request.header[9]) {}
  ByteView view() const { return ByteView(bytes).first(count); }

  std::array<std::uint8_t, kMaxI2cAddress> bytes;
  std::size_t count;
};

}  // namespace

struct Hub::Handler {
  enum class Stage { None, Out, In };

  std::uint16_t key;
  std::uint8_t enable;  // smallest enable value that allows it
  Stage stage;
  bool (Hub::*run)(const VendorRequest&, MutableBytes, Effects&);
};

const Hub::Handler* Hub::FindHandler(std::uint16_t key) {
  using enum Handler::Stage;
  static constexpr Handler kHandlers[] = {
      {0x4002, 0, None, &Hub::Enable},
      {0xC009, 1, In, &Hub::Status},
      {0x40C8, 3, Out, &Hub::WriteFlash},
      {0xC0D8, 1, In, &Hub::ReadFlash},
      {0x40E8, 1, None, &Hub::EraseFlash},
      {0x4000, 0, None, &Hub::ResetToRom},
      {0x40E9, 0, None, &Hub::ResetToFlash},
      {0x40D9, 1, None, &Hub::ValidateImage},
      {0x4008, 0, None, &Hub::SetDownloadSlave},
      {0x4006, 0, None, &Hub::SetClock},
      {0x40F6, 0, Out, &Hub::ConfigureI2c},
      {0x40C6, 0, Out, &Hub::WriteI2c},
      {0x40D6, 0, In, &Hub::ReadI2c},
      {0xC0D6, 0, In, &Hub::ReadI2c},
      {0x40DC, 0, Out, &Hub::BlockOut},
      {0xC0EC, 0, In, &Hub::BlockIn},
      {0x40F1, 0, Out, &Hub::WriteBridge},
      {0x00CF, 0, Out, &Hub::WriteBridge},
      {0x40F4, 0, None, &Hub::EraseBridge},
      {0xC0F3, 0, In, &Hub::BridgeStatus},
      {0x40F2, 0, Out, &Hub::TakeRawBlock},
      {0x40F5, 0, Out, &Hub::TakeRawBlock},
      {0xC004, 0, In, &Hub::ReadGpio},
      {0x400C, 0, None, &Hub::WriteGpio},
      {0x4004, 0, None, &Hub::SetHubGpio},
  };
  const auto found = std::find_if(std::begin(kHandlers), std::end(kHandlers),
                                  [&](const Handler& handler) { return handler.key == key; });
  return found == std::end(kHandlers) ? nullptr : found;
}

Result Hub::Execute(const VendorRequest& request, MutableBytes answer, Effects& effects) {
  const Handler* handler = FindHandler(request.key());
  if (handler == nullptr || enable_ < handler->enable) return {Error::Stall};
  if (handler->stage == Handler::Stage::None && request.length() != 0) return {Error::Stall};
  return {(this->*handler->run)(request, answer, effects) ? Error::None : Error::Stall};
}

bool Hub::Enable(const VendorRequest& request, MutableBytes, Effects&) {
  if (request.index() != kEnableIndex || request.value() > 3) return false;
  enable_ = Low(request.value());
  return true;
}

bool Hub::Status(const VendorRequest&, MutableBytes answer, Effects&) {
  const ImageIdentity identity = Identity();
  std::array<std::uint8_t, kStatusSize> status{};
  PutBigEndian16(status, 0, identity.vid);
  PutBigEndian16(status, 4, identity.pid);
  PutBigEndian16(status, 10, identity.version);
  status[13] = config_.ispSupported ? kIspSupported : std::uint8_t{0};
  if (code_ == Code::Flash) status[15] |= kFlashCode;
  if (config_.dualBank) status[15] |= kDualBank;
  std::copy_n(status.begin(), std::min(status.size(), answer.size()), answer.begin());
  return true;
}

bool Hub::WriteFlash(const VendorRequest& request, MutableBytes, Effects&) {
  if (!MayChangeFlash()) return false;
  std::uint32_t newest = 0;
  for (const FlashBank& bank : banks_) newest = std::max(newest, bank.history().generation);
  return TargetBank().Program(request.address(), request.data(), newest + 1);
}

bool Hub::ReadFlash(const VendorRequest& request, MutableBytes answer, Effects&) {
  return TargetBank().Read(request.address(), answer);
}

bool Hub::EraseFlash(const VendorRequest&, MutableBytes, Effects& effects) {
  if (!MayChangeFlash()) return false;
  TargetBank().Erase();
  effects.delayMs = config_.timing.eraseMs;
  effects.save = true;
  return true;
}

bool Hub::ResetToRom(const VendorRequest&, MutableBytes, Effects& effects) {
  CutSessions();
  Boot(Code::Rom);
  effects.reset = effects.save = true;
  return true;
}

bool Hub::ResetToFlash(const VendorRequest& request, MutableBytes, Effects& effects) {
  if (request.value() != kResetCodeValue) return false;
  for (FlashBank& bank : banks_) bank.EndSession();
  Boot(Code::Flash);
  effects.reset = effects.save = true;
  return true;
}

bool Hub::ValidateImage(const VendorRequest& request, MutableBytes, Effects&) {
  return config_.ispSupported && request.value() == 1 && TargetBank().HoldsCompleteImage();
}

bool Hub::SetDownloadSlave(const VendorRequest& request, MutableBytes, Effects&) {
  downloadSlave_ = request.value();
  return true;
}

bool Hub::SetClock(const VendorRequest& request, MutableBytes, Effects&) {
  if (request.value() > 1) return false;
  highClock_ = request.value() == 1;
  return true;
}

bool Hub::ConfigureI2c(const VendorRequest& request, MutableBytes, Effects&) {
  std::copy_n(request.header.begin() + 2, i2cSetting_.size(), i2cSetting_.begin());
  return true;
}

I2cTarget* Hub::AddressedTarget(const VendorRequest& request) {
  const std::uint8_t options = request.header[10];
  if ((options & kI2cConfigured) == 0 || (options & ~kI2cConfigured) > kFastestI2c) return nullptr;
  if (request.header[9] > kMaxI2cAddress) return nullptr;
  const auto found = i2cTargets_.find(request.header[8]);
  return found == i2cTargets_.end() ? nullptr : found->second.get();
}

bool Hub::WriteI2c(const VendorRequest& request, MutableBytes, Effects&) {
  I2cTarget* target = AddressedTarget(request);
  return target != nullptr && target->Write(I2cAddress(request).view(), request.data());
}

bool Hub::ReadI2c(const VendorRequest& request, MutableBytes answer, Effects&) {
  I2cTarget* target = AddressedTarget(request);
  return target != nullptr && target->Read(I2cAddress(request).view(), answer);
}

bool Hub::BlockOut(const VendorRequest& request, MutableBytes, Effects&) {
  const auto found = i2cTargets_.find(Low(request.value()));
  return found != i2cTargets_.end() &&
         found->second->BlockOut(High(request.value()), request.data());
}

bool Hub::BlockIn(const VendorRequest& request, MutableBytes answer, Effects&) {
  const auto found = i2cTargets_.find(Low(request.value()));
  return found != i2cTargets_.end() &&
         found->second->BlockIn(High(request.value()), request.index(), answer);
}

bool Hub::WriteBridge(const VendorRequest& request, MutableBytes, Effects&) {
  return bridgeFlash_.Write(request.address(), request.data());
}

bool Hub::EraseBridge(const VendorRequest&, MutableBytes, Effects&) {
  return bridgeFlash_.EraseAll();
}

bool Hub::BridgeStatus(const VendorRequest&, MutableBytes answer, Effects&) {
  if (answer.empty()) return false;
  answer[0] = bridgeFlash_.ReadStatus();
  return true;
}

bool Hub::TakeRawBlock(const VendorRequest& request, MutableBytes, Effects&) {
  rawBlock_.assign(request.header.begin(), request.header.end());
  const ByteView data = request.data();
  rawBlock_.insert(rawBlock_.end(), data.begin(), data.end());
  return true;
}

bool Hub::ReadGpio(const VendorRequest& request, MutableBytes answer, Effects&) {
  const std::size_t line = High(request.value());
  if (line >= kGpioLines || Low(request.value()) != 0 || answer.empty()) return false;
  answer[0] = gpio_[line] ? 1 : 0;
  return true;
}

bool Hub::WriteGpio(const VendorRequest& request, MutableBytes, Effects&) {
  const std::size_t line = High(request.value());
  if (line >= kGpioLines || Low(request.value()) != 0 || Low(request.index()) != 0) return false;
  gpio_[line] = High(request.index()) != 0;
  return true;
}

bool Hub::SetHubGpio(const VendorRequest& request, MutableBytes, Effects&) {
  if (request.index() >= kGpioLines || Low(request.value()) != 1) return false;
  gpio_[request.index()] = High(request.value()) != 0;
  return true;
}

}  // namespace virtualhub
