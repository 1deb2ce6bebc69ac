// What logs are about, as docs/json.md describes it.
#pragma once

#include <nlohmann/json.hpp>
#include <vector>

#include "qzhid/explain/log_account.h"

namespace qzhid {

nlohmann::ordered_json JsonReport(const std::vector<LogAccount>& accounts);

}  // namespace qzhid
