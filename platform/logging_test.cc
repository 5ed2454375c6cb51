#include "platform/logging.h"

#include <glog/logging.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/fixtures/temp_dir.h"

namespace morvane::ap {
namespace {

using ::testing::MatchesRegex;

// Each test sets logging up again: a later InitLogging() replaces the
// settings of an earlier one in the same process.

TEST(LoggingTest, StderrGetsTheMessageWithTheHeaderWhenAskedForAndNothingWhenOff) {
  InitLogging("/usr/sbin/avd", kLogToStderr);
  testing::internal::CaptureStderr();
  LOG(WARNING) << "Failed to read file: /x";
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "Failed to read file: /x\n");

  InitLogging("/usr/sbin/avd", kLogToStderr | kLogHeader);
  testing::internal::CaptureStderr();
  LOG(INFO) << "Group failure is 1";
  EXPECT_THAT(
      testing::internal::GetCapturedStderr(),
      MatchesRegex("I[0-9]+ [0-9:.]+ +[0-9]+ logging_test\\.cc:[0-9]+\\] "
                   "Group failure is 1\n"));

  // Without stderr nothing reaches stderr or log files.
  TempDir dir;
  FLAGS_log_dir = dir.path();
  InitLogging("avd", kLogToSyslog);
  testing::internal::CaptureStderr();
  LOG(ERROR) << "Failed to do something in a logging test, ignoring";
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

// CHECK expands to an expression with a top-level comma, which
// EXPECT_DEATH cannot take as its statement directly.
void FailCheck() { CHECK(false) << "Failed to read file: /x"; }

TEST(LoggingDeathTest, FailedCheckPrintsConditionAndMessageAndAborts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const int kFlags[] = {kLogToSyslog | kLogToStderr | kLogHeader, kLogToSyslog,
                        kLogToStderr};
  for (int flags : kFlags) {
    SCOPED_TRACE(flags);
    InitLogging("avd", flags);

    EXPECT_DEATH(FailCheck(), "Check failed: false.*Failed to read file: /x");
  }
}

}  // namespace
}  // namespace morvane::ap
