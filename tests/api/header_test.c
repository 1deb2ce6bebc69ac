/* The public header alone is enough for a C11 host, and records are laid out as ever. */
#include "QzHidAPI.h"

_Static_assert(sizeof(HidDevRecord) == 4136 && offsetof(HidDevRecord, LocationPath) == 2052 &&
                   offsetof(HidDevRecord, PID) == 4100 && offsetof(HidDevRecord, Port) == 4124 &&
                   sizeof(QZ_Utf16) == 2,
               "layout of the exported record");
