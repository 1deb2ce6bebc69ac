// The declarations of the HID services. Some toolchains' headers leave it to the program to say
// that these are C functions.
#pragma once

#include "platform/system/windows/system.h"

extern "C" {
#include <hidsdi.h>
}
