#include "qzhid/outcome.h"

#include <array>

namespace qzhid {

const char* NameOf(Outcome outcome) {
  constexpr std::array kNames{"updated", "current", "refused", "not started",
                              "loader",  "lost",    "failed"};
  return kNames[static_cast<std::size_t>(outcome)];
}

Outcome OutcomeOf(const Failure& failure) {
  switch (failure.Status()) {
    case Exit::Refused:
    case Exit::NoPermission:
      return Outcome::Refused;
    case Exit::InLoader:
      return Outcome::Loader;
    case Exit::HubLost:
      return Outcome::Lost;
    default:
      return Outcome::Failed;
  }
}

}  // namespace qzhid
