#include "platform/sysroot.h"

#include <gtest/gtest.h>
#include <stdlib.h>

namespace morvane::ap {
namespace {

TEST(SysrootTest, PrefixesFixedPathsOnlyWhenTheVariableIsSet) {
  const struct {
    const char* sysroot;  // null: unset
    const char* expected;
  } kCases[] = {
      {nullptr, "/var/cache/vpd/full-v2.txt"},
      {"", "/var/cache/vpd/full-v2.txt"},
      {"/tmp/sim", "/tmp/sim/var/cache/vpd/full-v2.txt"},
      {"/tmp/sim/", "/tmp/sim/var/cache/vpd/full-v2.txt"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.sysroot ? c.sysroot : "(unset)");
    if (c.sysroot) {
      setenv(kSysrootVariable, c.sysroot, 1);
    } else {
      unsetenv(kSysrootVariable);
    }

    EXPECT_EQ(SysrootPath("/var/cache/vpd/full-v2.txt"), c.expected);
  }
  setenv(kSysrootVariable, "/tmp/sim", 1);
  EXPECT_EQ(SysrootPath("relative"), "/tmp/sim/relative");
  unsetenv(kSysrootVariable);
}

}  // namespace
}  // namespace morvane::ap
