#ifndef PLATFORM_FILE_UTIL_H_
#define PLATFORM_FILE_UTIL_H_

#include <string>
#include <vector>

namespace morvane::ap {

// Reads the whole file at |path| into |*contents|, byte for byte (binary
// safe). Returns false if the file cannot be opened or read; |*contents| is
// then empty and errno tells why.
bool ReadFileToString(const std::string& path, std::string* contents);

// True if |path| names an existing file or directory (symbolic links are
// followed, so a dangling link does not exist).
bool PathExists(const std::string& path);

// Writes |size| bytes from |data| to |path| as one open-write-close, the way
// a sysfs attribute is written: the file is created if its directory exists
// (missing directories are not made) and truncated, and nothing is added,
// not even a newline. Returns the number of bytes written, or -1 if the file
// cannot be opened or a write or the close fails. A write that stops
// early without an error returns the shorter count.
int WriteFile(const std::string& path, const char* data, int size);

// Runs argv[0] (a bare name is looked up through PATH) with the rest of
// |argv| as arguments, and waits for it: this blocks the caller until the
// program exits. Its standard input, output and error are /dev/null, and it
// starts with no blocked signals and default signal handling. Returns true
// only if the program ran and exited with status 0; a missing program is
// just false.
bool RunCommand(const std::vector<std::string>& argv);

}  // namespace morvane::ap

#endif  // PLATFORM_FILE_UTIL_H_
