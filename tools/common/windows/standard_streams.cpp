#include "common/standard_streams.h"

namespace tools {

// Nothing to do: what is opened later never takes the place of a missing standard handle.
void OpenStandardStreams() {}

}  // namespace tools
