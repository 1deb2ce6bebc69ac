#include "common/process_start.h"

namespace tools {

// Nothing to do: what is opened later never takes the place of a missing standard handle, and files
// have no limit.
void PrepareProcess() {}

}  // namespace tools
