// capture_sample SCENARIO: carries out the steps on standard input on a machine in virtual time,
// and prints what the recorder has of each exchange: "KIND MICROSECONDS ERROR CODE BYTES".
//
// Steps: "open NAME" the device as it is now, "output BYTES", "interrupt BYTES" and "input LENGTH
// ID" for the opened one, "sleep MILLISECONDS", and the lines of a control file.
#include <iostream>
#include <sstream>

#include "support/bytes.h"
#include "virtualhub/bus/current_machine.h"

namespace {

using namespace virtualhub;

void Print(const Record& record) {
  std::cout << (record.kind == Record::Kind::Output ? "output " : "input ") << record.timeUs << ' '
            << static_cast<int>(record.result.error) << ' ' << record.result.code << " x";
  for (const std::uint8_t byte : record.data) {
    for (const int digit : {byte / 16, byte % 16}) std::cout << "0123456789abcdef"[digit];
  }
  std::cout << '\n';
}

}  // namespace

int main(int, char** arguments) {
  Machine& machine = InstallMachine(ReadScenarioFile(arguments[1]));
  HidNode node;
  for (std::string line, word, rest; std::getline(std::cin, line);) {
    std::istringstream words(line);
    std::getline(words >> word >> std::ws, rest);
    if (word == "open") {
      node = machine.OnBus(rest)->hid;
    } else if (word == "output" || word == "interrupt") {
      const auto pipe = word == "output" ? OutputPipe::Control : OutputPipe::Interrupt;
      machine.SetOutputReport(node, qzhid::test::Hex(rest), pipe);
    } else if (word == "input") {
      Bytes report(std::stoul(rest));
      report[0] = static_cast<std::uint8_t>(std::stoul(rest.substr(rest.find(' '))));
      machine.GetInputReport(node, report);
    } else if (word == "sleep") {
      machine.SleepMs(static_cast<std::uint32_t>(std::stoul(rest)));
    } else {
      machine.Control(line);
    }
    for (const Record& record : machine.recorder().all()) {
      if (record.kind == Record::Kind::Output || record.kind == Record::Kind::Input) Print(record);
    }
    machine.recorder().Clear();
  }
}
