// The systems' error codes by name.
#pragma once

#include <cstdint>
#include <string>

#include "qzhid/explain/log_jobs.h"

namespace qzhid {

/// Such as "EPIPE" or "ERROR_GEN_FAILURE"; empty when the code has no name here, or when the system
/// is unknown.
std::string ErrorName(System system, CodeKind kind, std::uint32_t code);

/// Name, number and meaning of a code: "EPIPE (32): the hub refused it". When the log does not say
/// which system it comes from, those of both.
std::string ErrorText(System system, CodeKind kind, std::uint32_t code);

/// What went wrong, as far as a code says it.
enum class ErrorClass { Other, Refused, Gone, NoPermission, InUse, Closed, NoMemory, TimedOut };
ErrorClass ClassOf(System system, CodeKind kind, std::uint32_t code);

}  // namespace qzhid
