#include "virtualhub/scenario/control_file.h"

namespace virtualhub {

std::vector<ControlFile::Line> ControlFile::TakeNew() {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(path_, error);
  const bool isMissing = error == std::errc::no_such_file_or_directory;
  if (error && !isMissing) throw FileError("cannot be read: " + error.message());
  if (isMissing || size < read_) *this = ControlFile(path_);
  if (isMissing || size == read_) return {};
  ReadTo(size);

  std::vector<Line> lines;
  std::size_t at = 0;
  for (std::size_t end; (end = rest_.find('\n', at)) != std::string::npos; at = end + 1) {
    lines.push_back({++lines_, rest_.substr(at, end - at)});
  }
  rest_.erase(0, at);
  return lines;
}

void ControlFile::ReadTo(std::uintmax_t size) {
  const Bytes added = ReadFilePart(path_, read_, static_cast<std::size_t>(size - read_));
  read_ += added.size();
  rest_.append(added.begin(), added.end());
}

}  // namespace virtualhub
