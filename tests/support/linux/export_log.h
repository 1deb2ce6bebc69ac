// The log as tests of the exports see it, of a library that is linked into the test program.
#pragma once

#include "support/log_capture.h"

namespace qzhid::test {

using ExportLog = LogCapture;

}  // namespace qzhid::test
