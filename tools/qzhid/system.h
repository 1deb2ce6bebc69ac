// What the program needs from the operating system besides the standard library.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace qzhid::system {

/// The files to try for the library, in this order; `folder` is that of the program.
std::vector<std::string> LibraryFiles(const std::filesystem::path& folder, bool isVirtual);

/// The folder of the running program.
std::filesystem::path ProgramFolder();

/// Loads a library; null with a reason when it cannot be.
void* LoadLibraryFile(const std::string& file, std::string& reason);
void UnloadLibraryFile(void* library);
void* FindFunction(void* library, const char* name);

enum class Stream { Input, Output, Errors };
bool IsTerminal(Stream stream);

/// From now on data on that stream is not converted.
void PassBytesUnchanged(Stream stream);

/// The size of the terminal on standard error if it obeys control sequences; otherwise 0.
struct TerminalSize {
  std::size_t columns = 0, lines = 0;
};
TerminalSize DrawableTerminal();

/// The signals that ask the process to end, like Ctrl-C.
extern const std::vector<int> kInterrupts;

/// Whether each new thread switches the library's log on, also one that the system starts for
/// Ctrl-C.
extern const bool kThreadsStartLog;

/// From now on the process continues without its terminal, without readers of its output, and when
/// a file reaches the limit of its size.
void OutliveReaders();

/// The folder and the version of a library that is loaded, and the name of this computer; empty
/// when not known.
std::filesystem::path LibraryFolder(void* library);
std::string LibraryVersion(void* library);
std::string HostName();

/// What a status that a function of the library returned means, in a few words.
std::string StatusText(std::uint32_t status);

/// The folder for the user's settings of all programs; empty when there is none.
std::filesystem::path ConfigFolder();

/// Makes a new folder for temporary files that only this user can read; empty when it cannot be.
std::filesystem::path MakePrivateFolder();

}  // namespace qzhid::system
