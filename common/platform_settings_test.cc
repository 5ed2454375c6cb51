#include "common/platform_settings.h"

#include <fstream>

#include <gtest/gtest.h>

namespace morvane::ap {
namespace {

TEST(PlatformSettingsTest, StringsAreSingleQuotedWordsAndFlagsBareOneOrZero) {
  const std::string path = testing::TempDir() + "/platform_settings_test.sh";
  std::ofstream(path) << "PLATFORM_SETUP_SSID_MODEL='it'\"'\"'s'\n"
                         "EMPTY=''\n"
                         "LONE_QUOTE='\n"
                         "OPEN_ONLY='/dev/input/event0\n"
                         "PLATFORM_TOUCH_INPUT_EVENT_PATH=/dev/input/event0\n"
                         "ONLY_ESCAPE='\"'\"'\n"
                         "PLATFORM_HAS_A=1\nPLATFORM_HAS_B=0\nPLATFORM_HAS_C='1'\n"
                         "PLATFORM_HAS_D=yes\nPLATFORM_HAS_E=1 \n";
  const PlatformSettings settings(path);
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

  EXPECT_TRUE(settings.HasFeature("A"));
  for (const char* name : {"B", "C", "D", "E", "ABSENT"}) {
    EXPECT_FALSE(settings.HasFeature(name)) << name;
  }
  // "0" is a value, not an absent flag.
  bool flag = true;
  EXPECT_TRUE(settings.GetBooleanFlag("PLATFORM_HAS_B", &flag));
  EXPECT_FALSE(flag);
}

}  // namespace
}  // namespace morvane::ap
