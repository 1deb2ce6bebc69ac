// The list of accepted ids, as text.
#include "fuzz/fuzz.h"
#include "transport/hid_transfers.h"

using namespace qzhid::fuzz;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static MemoryFile file;
  file.Fill({data, size});
  qzhid::VidPidList list{{1, 2}};
  Require(qzhid::ReadVidPidList(file.path(), list), "the file can be read");
  Require(std::ssize(list) <= std::count(data, data + size, '\n') + 1, "a line has one pair");
  for (const auto& [vid, pid] : list) Require(vid != 0 && pid != 0, "ids are not 0");
  Require(qzhid::CHidTransfers().GetVidPidList(file.path()) == (list.empty() ? 0u : 1u),
          "both reads agree");
  return 0;
}
