#include "common/options.h"

#include "common/texts.h"

namespace tools {

CLI::Option* AddHexNumber(CLI::App& command, const std::string& name, std::uint16_t& number,
                          const std::string& meaning) {
  const auto check = [](const std::string& text) {
    return ParseHexNumber(text) ? std::string()
                                : "'" + text + "' is not one to four hexadecimal digits";
  };
  const auto take = [&number](const std::string& text) { number = *ParseHexNumber(text); };
  return command.add_option_function<std::string>(name, take, meaning)
      ->check(CLI::Validator(check, "HEX"))
      ->option_text("ID");
}

}  // namespace tools
