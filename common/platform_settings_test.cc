#include "common/platform_settings.h"

#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/fixtures/log_capture.h"

namespace morvane::ap {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// A file named after the running test (ctest runs this file's tests in
// parallel).
std::string TestFile() {
  return testing::TempDir() + "/" +
         testing::UnitTest::GetInstance()->current_test_info()->name() + ".sh";
}

// Writes |text| to the test's file and loads it.
PlatformSettings Load(const std::string& text) {
  std::ofstream(TestFile()) << text;
  return PlatformSettings(TestFile());
}

TEST(PlatformSettingsTest, StringsMustBeSingleQuotedWords) {
  const PlatformSettings settings = Load(
      "PLATFORM_SETUP_SSID_MODEL='it'\"'\"'s'\n"
      "EMPTY=''\n"
      "LONE_QUOTE='\n"
      "OPEN_ONLY='/dev/input/event0\n"
      "PLATFORM_TOUCH_INPUT_EVENT_PATH=/dev/input/event0\n"
      "ONLY_ESCAPE='\"'\"'\n");
  std::string model, empty = "x", escape, rejected = "untouched";

  EXPECT_TRUE(settings.GetSetupSsidModel(&model));
  EXPECT_EQ(model, "it's");
  EXPECT_TRUE(settings.GetQuotedString("EMPTY", &empty));
  EXPECT_EQ(empty, "");
  // Its opening quote does not start an escape.
  EXPECT_TRUE(settings.GetQuotedString("ONLY_ESCAPE", &escape));
  EXPECT_EQ(escape, "\"'\"");
  EXPECT_FALSE(settings.GetQuotedString("LONE_QUOTE", &rejected));
  EXPECT_FALSE(settings.GetQuotedString("OPEN_ONLY", &rejected));
  EXPECT_FALSE(settings.GetQuotedString("PLATFORM_TOUCH_INPUT_EVENT_PATH",
                                        &rejected));
  EXPECT_EQ(rejected, "untouched");
  EXPECT_EQ(settings.GetTouchInputEventPath(), "");
}

TEST(PlatformSettingsTest, FlagsAreOnlyBareOneOrZero) {
  const PlatformSettings settings = Load(
      "PLATFORM_HAS_A=1\nPLATFORM_HAS_B=0\nPLATFORM_HAS_C='1'\n"
      "PLATFORM_HAS_D=yes\nPLATFORM_HAS_E=1 \n");
  bool flag = true;

  EXPECT_TRUE(settings.HasFeature("A"));
  for (const char* name : {"B", "C", "D", "E", "ABSENT"}) {
    EXPECT_FALSE(settings.HasFeature(name)) << name;
  }
  // "0" is a value, not an absent flag.
  EXPECT_TRUE(settings.GetBooleanFlag("PLATFORM_HAS_B", &flag));
  EXPECT_FALSE(flag);
}

// What a bad image holds costs only the line it is on, and says where.
TEST(PlatformSettingsTest, BadLinesAreSkippedWithTheirNumberAndTheRestCounts) {
  const std::string touch =
      "PLATFORM_TOUCH_INPUT_EVENT_PATH='/dev/input/event0'";
  const struct {
    std::string text;
    std::vector<int> skipped;
  } kCases[] = {
      {touch + "\n", {}},
      {touch + "\r\nPLATFORM_HAS_A=1\r\n", {}},
      {"export PATH\n" + touch + "\n", {1}},
      {std::string("X=a\0b\n", 6) + touch + "\nbroken\n", {1, 3}},
      {"#!/bin/sh\n\n" + touch + "\n\x1b[2J\n", {4}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::PrintToString(c.text));
    LogCapture log;

    const PlatformSettings settings = Load(c.text);

    EXPECT_EQ(settings.GetTouchInputEventPath(), "/dev/input/event0");
    std::vector<std::string> expected;
    for (int line : c.skipped) {
      expected.push_back("Failed to read line " + std::to_string(line) +
                         " of " + TestFile() + ": not KEY=VALUE, skipping it");
    }
    EXPECT_EQ(log.Messages(google::GLOG_WARNING), expected);
  }
  EXPECT_TRUE(Load("PLATFORM_HAS_A=1\r\n").HasFeature("A"));
}

TEST(PlatformSettingsTest, AnUnreadableFileIsSaidOnceWithItsPathAndReason) {
  const struct {
    const char* name;
    bool exists;
    const char* reason;
  } kCases[] = {
      {"missing", false, "No such file or directory"},
      {"mode 000", true, "Permission denied"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.name);
    if (c.exists && geteuid() == 0) continue;  // root reads it anyway
    unlink(TestFile().c_str());
    if (c.exists) {
      std::ofstream(TestFile()) << "PLATFORM_HAS_A=1\n";
      chmod(TestFile().c_str(), 0);
    }
    LogCapture log;

    const PlatformSettings settings(TestFile());

    EXPECT_FALSE(settings.HasFeature("A"));
    EXPECT_THAT(log.Messages(google::GLOG_WARNING),
                ElementsAre("Failed to read " + TestFile() + ": " + c.reason +
                            "; no platform settings"));
  }
}

}  // namespace
}  // namespace morvane::ap
