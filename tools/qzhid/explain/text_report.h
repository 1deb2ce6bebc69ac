// What logs are about, as text.
#pragma once

#include <string>
#include <vector>

#include "qzhid/explain/log_account.h"

namespace qzhid {

std::string TextReport(const std::vector<LogAccount>& accounts);

}  // namespace qzhid
