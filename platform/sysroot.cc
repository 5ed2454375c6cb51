#include "platform/sysroot.h"

#include <cstdlib>

namespace morvane::ap {

std::string SysrootPath(const std::string& absolute_path) {
  const char* root = std::getenv(kSysrootVariable);
  if (!root || !*root) return absolute_path;
  std::string path = root;
  while (!path.empty() && path.back() == '/') path.pop_back();
  if (absolute_path.empty() || absolute_path.front() != '/') path += '/';
  return path + absolute_path;
}

}  // namespace morvane::ap
