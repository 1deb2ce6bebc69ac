#!/bin/sh
# with_library.sh LIBRARY COMMAND...: runs a program that loads the library. A sanitized library needs its
# runtime in programs that are not sanitized.
library=$1
shift
sanitizers=$(ldd "$library" | sed -n 's/.*=> \(.*[al]san\.so[^ ]*\) .*/\1/p' | tr '\n' ' ')
LD_PRELOAD="$sanitizers" ASAN_OPTIONS=detect_leaks=0:handle_segv=0 exec "$@"
