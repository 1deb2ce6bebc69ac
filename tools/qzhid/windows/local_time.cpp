#include "qzhid/local_time.h"

#include <array>
#include <ctime>

namespace qzhid {

std::string LocalTimeText(std::chrono::system_clock::time_point time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm local{};
  localtime_s(&local, &seconds);
  std::array<char, 64> text{};
  const std::size_t length = std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &local);
  return {text.data(), length};
}

}  // namespace qzhid
