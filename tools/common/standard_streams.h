#pragma once

namespace tools {

/// Opens the null device as each of standard input, output and error that the process was started
/// without. Otherwise the next file or connection that is opened takes that place, and gets what is
/// printed. For the beginning of main, before anything else.
void OpenStandardStreams();

}  // namespace tools
