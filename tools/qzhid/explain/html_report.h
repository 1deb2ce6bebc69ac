// What logs are about, as a page for a browser that needs no other file.
#pragma once

#include <string>
#include <vector>

#include "qzhid/explain/log_account.h"

namespace qzhid {

std::string HtmlReport(const std::vector<LogAccount>& accounts);

}  // namespace qzhid
