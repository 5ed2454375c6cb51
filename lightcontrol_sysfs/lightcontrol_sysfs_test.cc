// The library as the daemon uses it, through its six functions, against a
// sysfs that umockdev simulates at the real paths (/sys/class/leds, ...).
// Runs with umockdev's preload library, as umockdev-wrapper runs it.

#include <umockdev.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stubs/lightcontrol/lightcontrol.h"
#include "tests/fixtures/temp_dir.h"

namespace {

using testing::HasSubstr;
using Attributes = std::vector<std::pair<std::string, std::string>>;

constexpr char kRgbLed[] = "rgb:status";
const Attributes kRgbAttributes = {
    {"brightness", "0"}, {"max_brightness", "255"}, {"multi_index", "red green blue"},
    {"multi_intensity", "0 0 0"}, {"trigger", "[none] timer pattern"},
    {"pattern", ""}, {"repeat", "-1"}};

class LightControlSysfsTest : public testing::Test {
 protected:
  void SetUp() override {
    testbed_ = umockdev_testbed_new();
    ASSERT_TRUE(umockdev_in_mock_environment()) << "run under umockdev-wrapper";
    // Beside the simulated /sys, so that it goes with the test bed.
    gchar* root = umockdev_testbed_get_root_dir(testbed_);
    root_ = root;
    g_free(root);
    config_path_ = root_ + "/lightcontrol-sysfs.conf";
    unsetenv("LIGHTCONTROL_SYSFS_ROOT");
    setenv("LIGHTCONTROL_SYSFS_CONFIG", config_path_.c_str(), 1);
  }
  void TearDown() override { g_object_unref(testbed_); }

  void Add(const char* subsystem, const std::string& name, const Attributes& attributes) {
    std::vector<gchar*> list;
    for (const auto& [attribute, value] : attributes) {
      list.push_back(const_cast<gchar*>(attribute.c_str()));
      list.push_back(const_cast<gchar*>(value.c_str()));
    }
    list.push_back(nullptr);
    gchar* no_properties[] = {nullptr};
    g_free(umockdev_testbed_add_devicev(testbed_, subsystem, name.c_str(), nullptr,
                                        list.data(), no_properties));
  }

  // Writes the configuration file (none when |config| is null), then
  // light_init(); returns what the library reported on stderr.
  std::string Init(const char* config = nullptr) {
    if (config) std::ofstream(config_path_) << config;
    testing::internal::CaptureStderr();
    light_init(true);
    return testing::internal::GetCapturedStderr();
  }

  std::string Led(const std::string& led, const std::string& attribute) {
    std::string value = morvane::ap::ReadFile("/sys/class/leds/" + led + "/" + attribute);
    if (!value.empty() && value.back() == '\n') value.pop_back();
    return value;
  }

  UMockdevTestbed* testbed_ = nullptr;
  std::string root_;
  std::string config_path_;
};

TEST_F(LightControlSysfsTest, EachStateShowsItsOwnColourAndPattern) {
  Add("leds", kRgbLed, kRgbAttributes);
  Init();
  // A steady and an animated state; the other colours are the defaults'
  // table, and states 0 and 6 reach the simulator's ring end to end.
  EXPECT_EQ(light_set_state(1), 0);
  EXPECT_EQ(Led(kRgbLed, "multi_intensity"), "0 255 0");
  EXPECT_EQ(Led(kRgbLed, "trigger"), "none");
  EXPECT_EQ(Led(kRgbLed, "brightness"), "255");
  EXPECT_EQ(light_set_state(2), 0);
  EXPECT_EQ(Led(kRgbLed, "multi_intensity"), "255 96 0");
  EXPECT_EQ(Led(kRgbLed, "trigger"), "pattern");
  EXPECT_EQ(Led(kRgbLed, "repeat"), "-1");
  EXPECT_EQ(Led(kRgbLed, "pattern"), "0 500 0 0 255 500 255 0");

  // A transition plays into a steady state; an animated one starts at once.
  light_set_state_with_transition(1, 0);
  EXPECT_EQ(Led(kRgbLed, "repeat"), "2");
  EXPECT_EQ(Led(kRgbLed, "pattern"), "0 100 0 0 255 100 255 0");
  light_set_state_with_transition(3, 0);
  EXPECT_EQ(Led(kRgbLed, "repeat"), "-1");
  EXPECT_EQ(Led(kRgbLed, "pattern"), "0 750 255 750");

  // Steady again: the LED keeps the pattern trigger and holds the level.
  EXPECT_EQ(light_set_state(1), 0);
  EXPECT_EQ(Led(kRgbLed, "trigger"), "pattern");
  EXPECT_EQ(Led(kRgbLed, "repeat"), "1");
  EXPECT_EQ(Led(kRgbLed, "pattern"), "255 1 255 1");
}

TEST_F(LightControlSysfsTest, MasterBrightnessScalesEachLedToItsOwnRange) {
  Add("leds", "dim:rgb:ring", {{"brightness", "0"}, {"max_brightness", "100"},
                               {"multi_index", "green red blue white"}, {"multi_intensity", ""},
                               {"trigger", "[none] pattern"}, {"pattern", ""}, {"repeat", ""}});
  // A GPIO LED: on or off, and no pattern trigger in this kernel.
  Add("leds", "board:green:ok", {{"brightness", "0"}, {"max_brightness", "1"},
                                 {"trigger", "[none] timer"}});
  Add("leds", "board:red:fault", {{"brightness", "1"}, {"max_brightness", "1"}});
  Init("ring = dim:rgb:ring board:green:ok board:red:fault\n");

  light_set_master_brightness(76);
  light_set_state(1);

  // Green has nothing in common with white.
  EXPECT_EQ(Led("dim:rgb:ring", "multi_intensity"), "100 0 0 0");
  EXPECT_EQ(Led("dim:rgb:ring", "brightness"), "30");
  EXPECT_EQ(Led("board:green:ok", "brightness"), "1");
  EXPECT_EQ(Led("board:red:fault", "brightness"), "0");

  light_set_state(0);
  EXPECT_EQ(Led("dim:rgb:ring", "pattern"), "0 1500 30 1500");
  EXPECT_EQ(Led("board:green:ok", "trigger"), "none");
  EXPECT_EQ(Led("board:green:ok", "brightness"), "1");

  // The same level again must not restart the running pattern.
  std::ofstream("/sys/class/leds/dim:rgb:ring/pattern") << "untouched";
  light_set_master_brightness(76);
  EXPECT_EQ(Led("dim:rgb:ring", "pattern"), "untouched");
}

TEST_F(LightControlSysfsTest, ProblemsAreReportedAndTheRestOfTheRingWorks) {
  Add("leds", kRgbLed, kRgbAttributes);
  Add("leds", "rgb:stuck", kRgbAttributes);
  // A kernel attribute that is read-only, for root too.
  const std::string brightness = root_ + "/sys/class/leds/rgb:stuck/brightness";
  ASSERT_EQ(unlink(brightness.c_str()), 0);
  ASSERT_EQ(symlink("/sys/kernel/uevent_seqnum", brightness.c_str()), 0);

  const std::string init = Init(
      "ring = rgb:gone rgb:stuck rgb:status\n"
      "state.1 = chartreuse\n");
  testing::internal::CaptureStderr();
  const int shown = light_set_state(1);
  light_set_state(1);
  const int unknown = light_set_state(5);
  const std::string later = testing::internal::GetCapturedStderr();

  EXPECT_THAT(init, HasSubstr("Failed to find LED rgb:gone (/sys/class/leds/rgb:gone)"));
  EXPECT_THAT(init, HasSubstr("line 2: \"chartreuse\" is not a colour"));
  EXPECT_THAT(init, HasSubstr("ring of 2 LEDs: rgb:stuck, rgb:status (2 multicolour, 2 with the pattern trigger)"));
  EXPECT_EQ(shown, -1);
  EXPECT_THAT(later, HasSubstr("Failed to write \"255\" to /sys/class/leds/rgb:stuck/brightness: "));
  // Once per problem, not at every state change.
  EXPECT_EQ(later.find("rgb:stuck/brightness"), later.rfind("rgb:stuck/brightness"));
  EXPECT_EQ(unknown, -1);
  EXPECT_THAT(later, HasSubstr("Failed to show light state 5: the configuration has no state.5"));
  EXPECT_EQ(Led("rgb:stuck", "multi_intensity"), "0 255 0");
  EXPECT_EQ(Led(kRgbLed, "multi_intensity"), "0 255 0");
  EXPECT_EQ(Led(kRgbLed, "brightness"), "255");
}

TEST_F(LightControlSysfsTest, SensorsAreTheFirstIioDevicesWithTheRightChannels) {
  Init();
  uint8_t level = 7;
  testing::internal::CaptureStderr();
  EXPECT_FALSE(light_get_ambient_brightness(&level));
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              HasSubstr("Failed to read the ambient light: no IIO device"));
  EXPECT_EQ(light_get_proximity_device_path(), nullptr);

  Add("iio", "iio:device0", {{"in_temp_raw", "20"}, {"in_proximity_raw", "3"}});
  Add("iio", "iio:device1", {{"in_illuminance_raw", "100"}, {"in_illuminance_offset", "-20"},
                             {"in_illuminance_scale", "2.5"}});
  // Numbered, not sorted as text: device2 comes before device10. A
  // processed channel counts as much as a raw one.
  for (const char* device : {"iio:device10", "iio:device2"}) {
    Add("iio", device, {{device[10] == '2' ? "in_proximity0_input" : "in_proximity_raw", "5"},
                        {"events/in_proximity_thresh_either_en", "0"}});
  }

  EXPECT_TRUE(light_get_ambient_brightness(&level));
  EXPECT_EQ(level, 102);  // (100 - 20) * 2.5 = 200 lux of the default 500.
  // Brighter than full scale is the brightest level, not a wrapped byte.
  std::ofstream("/sys/bus/iio/devices/iio:device1/in_illuminance_raw") << "1000";
  EXPECT_TRUE(light_get_ambient_brightness(&level));
  EXPECT_EQ(level, 255);
  const char* path = light_get_proximity_device_path();
  ASSERT_NE(path, nullptr);
  EXPECT_STREQ(path, "/dev/iio:device2");
}

}  // namespace
