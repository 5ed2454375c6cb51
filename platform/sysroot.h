#ifndef PLATFORM_SYSROOT_H_
#define PLATFORM_SYSROOT_H_

#include <string>

namespace morvane::ap {

// The environment variable that moves the daemon's fixed paths under another
// root directory (the simulator's and the end-to-end tests' sysroot).
inline constexpr char kSysrootVariable[] = "AVD_SYSROOT";

// Returns |absolute_path| under the directory named by AVD_SYSROOT when that
// is set and not empty, else |absolute_path| unchanged. The variable is read
// at each call. Only for the daemon's own fixed paths: a path that came from
// a file or a library is already the one to use.
std::string SysrootPath(const std::string& absolute_path);

}  // namespace morvane::ap

#endif  // PLATFORM_SYSROOT_H_
