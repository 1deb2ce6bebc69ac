// The list of accepted ids, as text.
#include "fuzz/fuzz.h"
#include "transport/hid_transfers.h"

using namespace qzhid;
using namespace qzhid::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static MemoryFile file;
  file.Fill({data, size});
  VidPidList list{{1, 2}};
  Require(ReadVidPidList(file.path(), list), "the file can be read");
  const auto lines = std::count(data, data + size, '\n') + 1;
  Require(static_cast<std::ptrdiff_t>(list.size()) <= lines, "a line names one device");
  for (const auto& [vid, pid] : list) Require(vid != 0 && pid != 0, "ids are not 0");
  CHidTransfers transfers;
  Require(transfers.GetVidPidList(file.path()) == (list.empty() ? 0u : 1u), "both reads agree");
  HexBehind({reinterpret_cast<const char*>(data), size}, "PID_");
  return 0;
}
