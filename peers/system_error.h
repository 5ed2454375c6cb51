#ifndef PEERS_SYSTEM_ERROR_H_
#define PEERS_SYSTEM_ERROR_H_

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/error.h"

namespace morvane::ap {

// Adds "Failed to |what|: <errno's text>" to |error| and returns false, so
// that a failed system call is reported where it is made, in one line.
inline bool SystemCallFailed(ErrorPtr* error, const std::string& what) {
  const int saved = errno;
  Error::AddToPrintf(error, FROM_HERE, "sim", "io_error", "Failed to %s: %s",
                     what.c_str(), strerror(saved));
  return false;
}

}  // namespace morvane::ap

#endif  // PEERS_SYSTEM_ERROR_H_
