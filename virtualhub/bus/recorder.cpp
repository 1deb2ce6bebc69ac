#include "virtualhub/bus/recorder.h"

#include <algorithm>
#include <iterator>

namespace virtualhub {

std::vector<Record> Recorder::Of(Record::Kind kind) const {
  std::vector<Record> found;
  std::copy_if(records_.begin(), records_.end(), std::back_inserter(found),
               [&](const Record& record) { return record.kind == kind; });
  return found;
}

std::vector<std::uint16_t> Recorder::RequestKeys() const {
  std::vector<std::uint16_t> keys;
  for (const Record& record : records_) {
    if (record.kind == Record::Kind::Request) keys.push_back(record.key());
  }
  return keys;
}

std::vector<Record> Recorder::Calls(Service service) const {
  std::vector<Record> found;
  std::copy_if(records_.begin(), records_.end(), std::back_inserter(found),
               [&](const Record& record) {
                 return record.kind == Record::Kind::Call && record.service == service;
               });
  return found;
}

std::vector<std::string> Recorder::DebugTexts() const {
  std::vector<std::string> texts;
  for (const Record& record : records_) {
    if (record.kind == Record::Kind::Debug) texts.push_back(record.text);
  }
  return texts;
}

}  // namespace virtualhub
