// The process that writes one hub. It talks with the one that started it in JSON, one object a
// line on its standard output:
//
//   {"from": "1.02"}   what the hub runs
//   {"ready": true}    it may be written; the worker now waits for a line on its standard input,
//                      and ends without having touched the hub when there is none
//   {"percent": 40}    progress
//   {"runs": "2.10"}   what the hub runs now, where that could be found out
//   {"done": true}     the hub is written; the last line
//   {"error": {...}}   why it is not; the last line
#pragma once

#include "qzhid/update_check.h"

namespace qzhid {

void WriteAsWorker(Host& host, const UpdateOptions& options);

}  // namespace qzhid
