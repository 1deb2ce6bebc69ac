// What the program needs of the operating system beyond the standard library.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace qzhid::system {

/// Files to try for the library, in this order; `folder` is the program's own.
std::vector<std::string> LibraryFiles(const std::filesystem::path& folder, bool isVirtual);

/// The folder of the running program.
std::filesystem::path ProgramFolder();

/// Loads a library; null with a reason when it cannot be.
void* LoadLibraryFile(const std::string& file, std::string& reason);
void UnloadLibraryFile(void* library);
void* FindFunction(void* library, const char* name);

enum class Stream { Input, Output, Errors };
bool IsTerminal(Stream stream);

/// Data on standard input and output travel as they are from now on.
void PassBytesUnchanged(Stream stream);

/// How large the terminal on standard error is, when it obeys control sequences; else nothing.
struct TerminalSize {
  std::size_t columns = 0, lines = 0;
};
TerminalSize DrawableTerminal();

/// What asks the process to end, in the way of Ctrl-C.
extern const std::vector<int> kInterrupts;

/// Whether each new thread, also one that the system starts for Ctrl-C, switches the library's log
/// on.
extern const bool kThreadsStartLog;

/// From now on the process outlives its terminal and whoever reads its output.
void OutliveReaders();

/// Makes a new folder for temporary files that only this user can read; empty when it cannot be.
std::filesystem::path MakePrivateFolder();

}  // namespace qzhid::system
