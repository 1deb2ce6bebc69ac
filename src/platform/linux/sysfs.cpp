#include "platform/linux/sysfs.h"

#include <dirent.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <memory>

#include "platform/linux/sysfs_names.h"
#include "platform/linux/system_path.h"

namespace qzhid::platform {

namespace {

constexpr std::size_t kMostText = 64 * 1024;

struct FolderCloser {
  void operator()(DIR* folder) const { closedir(folder); }
};

}  // namespace

CSysfsFolder::CSysfsFolder(const std::string& path, Status& shortage)
    : m_Folder(OpenFile(path.c_str(), O_RDONLY | O_DIRECTORY)), m_Shortage(shortage) {
  struct stat facts {};
  if (!m_Folder) {
    NoteShortage();
  } else if (fstat(m_Folder.get(), &facts) == 0) {
    m_nInstance = facts.st_ino;
  }
}

void CSysfsFolder::NoteShortage() const {
  if (errno == EMFILE || errno == ENFILE || errno == ENOMEM) m_Shortage = LastFailure();
}

std::optional<std::string> CSysfsFolder::Read(const char* attribute) const {
  if (!m_Folder) return std::nullopt;
  std::optional<std::string> text = ReadTextFile(m_Folder.get(), attribute);
  if (!text) NoteShortage();
  if (text && !text->empty() && text->back() == '\n') text->pop_back();
  return text;
}

// Needs no descriptor, so that known devices stay known when no descriptor is left.
std::uint64_t InstanceOf(const std::string& path) {
  struct stat facts {};
  return stat(path.c_str(), &facts) == 0 ? facts.st_ino : 0;
}

Status ListHidraw(std::vector<HidrawEntry>& entries) {
  entries.clear();
  const std::string classes = SystemPath("/sys/class"), hidraw = classes + "/hidraw/";
  CFileHandle opened = OpenFile(hidraw.c_str(), O_RDONLY | O_DIRECTORY);
  const std::unique_ptr<DIR, FolderCloser> devices(opened ? fdopendir(opened.get()) : nullptr);
  if (!devices) {
    Status failure = LastFailure();
    // The class appears with the first driver that needs it.
    return failure.code == ENOENT && IsDirectory(classes.c_str()) ? Status{} : failure;
  }
  opened.Release();  // to the owner of the stream
  std::map<std::uint32_t, HidrawEntry> found;
  errno = 0;
  while (const dirent* const entry = readdir(devices.get())) {
    const auto number = HidrawNumber(entry->d_name);
    if (number) found[*number] = {hidraw + entry->d_name, entry->d_ino};
    errno = 0;
  }
  if (errno != 0) return LastFailure();
  for (auto& [number, entry] : found) entries.push_back(std::move(entry));
  return {};
}

std::string DeviceFolder(const HidrawEntry& entry) {
  std::error_code error;
  const auto folder = std::filesystem::canonical(entry.path, error);
  return error ? std::string() : folder.string();
}

std::optional<std::string> ReadTextFile(int folder, const char* path) {
  const CFileHandle file = OpenFileAt(folder, path, O_RDONLY);
  if (!file) return std::nullopt;
  std::string text;
  char chunk[1024];
  while (text.size() < kMostText) {
    const ssize_t length = Uninterrupted([&] { return read(file.get(), chunk, sizeof(chunk)); });
    if (length < 0) return std::nullopt;
    if (length == 0) break;
    text.append(chunk, static_cast<std::size_t>(length));
  }
  return text;
}

}  // namespace qzhid::platform
