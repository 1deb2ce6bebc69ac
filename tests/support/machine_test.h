// The frame of tests on a virtual machine, on the virtual clock.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "QzHidAPI.h"
#include "virtualhub/bus/current_machine.h"

namespace qzhid::test {

/// A hub named "hub" at port 3.1 running flash code 1.02 and a keyboard, recording.
inline virtualhub::Scenario RecordedScenario() {
  virtualhub::Scenario scenario = virtualhub::DefaultScenario();
  scenario.record = true;
  return scenario;
}

/// Installs a machine; leaves the library as a fresh process has it.
class MachineTest : public ::testing::Test {
 protected:
  MachineTest() { Install(RecordedScenario()); }
  ~MachineTest() override {
    QZ_CloseDev(nullptr);
    QZ_DllPassPara(0);
    virtualhub::UninstallMachine();
  }

  void Install(const virtualhub::Scenario& scenario) {
    machine = &virtualhub::InstallMachine(scenario);
  }

  /// The output reports on the wire so far, and the keys (type x 256 + request) of the requests.
  std::vector<virtualhub::Bytes> Outputs() const {
    std::vector<virtualhub::Bytes> reports;
    for (const auto& record : machine->recorder().Of(virtualhub::Record::Kind::Output)) {
      reports.push_back(record.data);
    }
    return reports;
  }
  std::vector<std::uint16_t> Keys() const { return machine->recorder().RequestKeys(); }

  virtualhub::Machine* machine = nullptr;
};

/// A path in the temporary folder that no other test uses.
inline std::string UniquePath(const std::string& name) {
  const ::testing::TestInfo& info = *::testing::UnitTest::GetInstance()->current_test_info();
  std::string path = std::string(info.test_suite_name()) + "." + info.name() + "." + name;
  std::replace(path.begin(), path.end(), '/', '_');
  return ::testing::TempDir() + path;
}

/// A file that is removed again.
class TempFile {
 public:
  explicit TempFile(const virtualhub::Bytes& contents, const std::string& name = "image.bin")
      : m_strPath(UniquePath(name)) {
    std::ofstream file(m_strPath, std::ios::binary);
    std::copy(contents.begin(), contents.end(), std::ostreambuf_iterator<char>(file));
  }
  ~TempFile() { std::remove(m_strPath.c_str()); }
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;

  const char* path() const { return m_strPath.c_str(); }

 private:
  std::string m_strPath;
};

/// An output report as the wire must carry it: report ID, header, zeros up to the data, data, zeros
/// up to `length`.
inline virtualhub::Bytes OutputReport(std::uint8_t id, std::size_t dataOffset,
                                      const virtualhub::Bytes& header,
                                      const virtualhub::Bytes& data = {},
                                      std::size_t length = 321) {
  virtualhub::Bytes report(length, 0);
  report[0] = id;
  std::copy(header.begin(), header.end(), report.begin() + 1);
  std::copy(data.begin(), data.end(), report.begin() + static_cast<std::ptrdiff_t>(dataOffset));
  return report;
}
inline virtualhub::Bytes Channel1(const virtualhub::Bytes& header,
                                  const virtualhub::Bytes& data = {}, std::size_t length = 321) {
  return OutputReport(0x00, 65, header, data, length);
}
inline virtualhub::Bytes Channel2(const virtualhub::Bytes& header,
                                  const virtualhub::Bytes& data = {}, std::size_t length = 321) {
  return OutputReport(0xF0, 64, header, data, length);
}

}  // namespace qzhid::test
