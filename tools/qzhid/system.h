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

/// Loads a library for the life of the process; null with a reason when it cannot be.
void* LoadLibraryFile(const std::string& file, std::string& reason);
void* FindFunction(void* library, const char* name);

enum class Stream { Input, Output, Errors };
bool IsTerminal(Stream stream);

/// Data on standard input and output travel as they are from now on.
void PassBytesUnchanged(Stream stream);

/// Writes to standard error in a way that a signal handler may use.
void WriteFromSignal(const char* text);

/// From now on the process outlives its terminal and whoever reads its output.
void OutliveReaders();

/// Makes a new folder for temporary files that only this user can read; empty when it cannot be.
std::filesystem::path MakePrivateFolder();

}  // namespace qzhid::system
