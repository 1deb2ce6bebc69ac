// What happened in the machine, in order.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "virtualhub/base/bytes.h"
#include "virtualhub/bus/service.h"
#include "virtualhub/bus/usb_tree.h"
#include "virtualhub/hub/result.h"

namespace virtualhub {

/// One thing that happened.
struct Record {
  enum class Kind {
    Call,     ///< a call of a service
    Sleep,    ///< a sleep of the host
    Output,   ///< an output report
    Input,    ///< an input report
    Request,  ///< the vendor request in the output report that follows in the record
    Debug,    ///< a text for a debugger
    Differs,  ///< how the host differs from the capture that a device repeats
  };

  Kind kind;
  std::uint64_t timeUs = 0;
  DevInst instance = 0;                 ///< 0 when none is concerned
  std::optional<Service> service = {};  ///< Call
  std::string text = {};                ///< Debug, Differs: UTF-8
  std::uint32_t value = 0;              ///< Call: node or string index; Sleep: milliseconds
  Bytes data = {};  ///< Output, Input: the whole report; Request: its OUT data stage
  std::array<std::uint8_t, 11> setup{};  ///< Request: setup packet and I2C configuration
  Result result = {};

  /// Request: type x 256 + request, such as 0x40C8.
  std::uint16_t key() const { return static_cast<std::uint16_t>(setup[0] << 8 | setup[1]); }
};

/// Keeps records while it is on. It must only be read while no call is under way.
class Recorder {
 public:
  void Start() { on_ = true; }
  void Stop() { on_ = false; }
  bool IsOn() const { return on_; }
  void Clear() { records_.clear(); }
  void Add(Record record) { records_.push_back(std::move(record)); }

  const std::vector<Record>& all() const { return records_; }

  /// The records of one kind, in order.
  std::vector<Record> Of(Record::Kind kind) const;

  /// The keys of all requests, in order.
  std::vector<std::uint16_t> RequestKeys() const;

  /// The calls of one service, in order.
  std::vector<Record> Calls(Service service) const;

  /// The texts for a debugger, in order.
  std::vector<std::string> DebugTexts() const;

 private:
  bool on_ = false;
  std::vector<Record> records_;
};

}  // namespace virtualhub
