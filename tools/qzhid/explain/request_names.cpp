#include "qzhid/explain/request_names.h"

#include <algorithm>
#include <cstdio>

namespace qzhid {

namespace {

// In a name, %A stands for the address, %L for the length, %V for the value, %H for its high byte,
// %I for the index, %J for the index's high byte and %T for the I2C target.
struct RequestName {
  std::uint16_t key;
  const char* name;
  const char* kind = nullptr;  // of all such requests; null when the name says it
};

constexpr RequestName kNames[] = {
    {0x00CF, "stage %L bytes for the bridge's flash at %A", "stage data for the bridge's flash"},
    {0x4000, "reset into the loader"},
    {0x4002, "allow vendor requests, value %V", "allow vendor requests"},
    {0x4004, "set GPIO line %I to %H", "set a GPIO line"},
    {0x4006, "set the frequency, value %V", "set the frequency"},
    {0x4008, "set the download address, value %V", "set the download address"},
    {0x400C, "drive GPIO line %H to %J", "drive a GPIO line"},
    {0x40C6, "write %L bytes to the I2C target %T at %A", "write to an I2C target"},
    {0x40C8, "write %L bytes to the flash at %A", "write to the flash"},
    {0x40D6, "read %L bytes from the I2C target %T at %A", "read from an I2C target"},
    {0x40D9, "validate the image"},
    {0x40DC, "write a block command"},
    {0x40E8, "erase the flash"},
    {0x40E9, "start the firmware"},
    {0x40F1, "write %L bytes to the bridge's flash at %A", "write to the bridge's flash"},
    {0x40F2, "block command of the bridge"},
    {0x40F4, "erase the bridge's flash"},
    {0x40F5, "raw block"},
    {0x40F6, "configure the I2C master"},
    {0xC004, "read the GPIO line %H", "read a GPIO line"},
    {0xC009, "read the status block"},
    {0xC0D6, "read %L bytes from the I2C target %T at %A", "read from an I2C target"},
    {0xC0D8, "read %L bytes from the flash at %A", "read from the flash"},
    {0xC0EC, "read the answer of a block command"},
    {0xC0F3, "read the status of the bridge's flash"},
};

std::string Hex(std::uint32_t number, int digits) {
  char text[16] = {};
  std::snprintf(text, sizeof(text), "0x%0*X", digits, number);
  return text;
}

std::string FieldOf(char letter, const LoggedRequest& request) {
  switch (letter) {
    case 'A':
      return Hex(request.Address(), 6);
    case 'L':
      return std::to_string(request.length);
    case 'V':
      return Hex(request.value, 4);
    case 'H':
      return std::to_string(request.value >> 8);
    case 'I':
      return std::to_string(request.index);
    case 'J':
      return std::to_string(request.index >> 8);
    default:
      return Hex(request.target.value_or(0), 2);
  }
}

const RequestName* FindName(std::uint16_t key) {
  const auto* const found = std::find_if(std::begin(kNames), std::end(kNames),
                                         [&](const RequestName& each) { return each.key == key; });
  return found == std::end(kNames) ? nullptr : found;
}

}  // namespace

std::string CodeOf(const LoggedRequest& request) {
  char text[16] = {};
  std::snprintf(text, sizeof(text), "%02X/%02X", request.type, request.code);
  return text;
}

std::string MeaningOf(const LoggedRequest& request) {
  const RequestName* const found = FindName(request.Key());
  if (found == nullptr) return "";
  std::string text;
  for (const char* at = found->name; *at != '\0'; ++at) {
    text += *at == '%' ? FieldOf(*++at, request) : std::string(1, *at);
  }
  return text;
}

std::string KindOf(const LoggedRequest& request) {
  const RequestName* const found = FindName(request.Key());
  if (found == nullptr) return "unknown request " + CodeOf(request);
  return found->kind != nullptr ? found->kind : found->name;
}

std::string TextOf(const LoggedRequest& request) {
  const std::string meaning = MeaningOf(request);
  return CodeOf(request) + (meaning.empty() ? "" : " (" + meaning + ")");
}

}  // namespace qzhid
