#pragma once

namespace tools {

/// For the beginning of main, before anything else. Opens the null device as each of standard
/// input, output and error that the process was started without; otherwise the next file or
/// connection that is opened takes that place, and gets what is printed. And a write that reaches
/// the limit on the size of files becomes an error instead of the end of the process.
void PrepareProcess();

}  // namespace tools
