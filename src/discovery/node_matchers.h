// The tests by which devices recognise their nodes.
#pragma once

#include "device/match.h"

namespace qzhid {

Matchers NodeMatchers();

}  // namespace qzhid
