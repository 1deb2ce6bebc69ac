// What becomes of a hub that is to be updated.
#pragma once

#include "qzhid/failure.h"

namespace qzhid {

enum class Outcome { Updated, Current, Refused, NotStarted, Loader, Lost, Failed };

/// As results, tables and the manual page name it: "not started".
const char* NameOf(Outcome outcome);

/// Of a hub whose check or update ended with that failure.
Outcome OutcomeOf(const Failure& failure);

}  // namespace qzhid
