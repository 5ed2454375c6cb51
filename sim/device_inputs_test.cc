#include "sim/device_inputs.h"

#include <linux/input.h>

#include <cstring>

#include <gtest/gtest.h>

namespace morvane::ap {
namespace {

TEST(DeviceInputsTest, WaveIsFallingThenRisingProximityThresholdEvents) {
  const std::string records = MakeWaveRecords(1'000'000'000, 200'000'000);

  ASSERT_EQ(records.size(), 32u);
  uint64_t ids[2];
  int64_t stamps[2];
  for (int i = 0; i < 2; ++i) {
    memcpy(&ids[i], records.data() + 16 * i, 8);
    memcpy(&stamps[i], records.data() + 16 * i + 8, 8);
  }
  // Upper word: type (bits 56-63) 0, direction (48-54), channel type
  // (32-39) 8 for proximity.
  EXPECT_EQ(ids[0], 0x0002000800000000u);
  EXPECT_EQ(ids[1], 0x0001000800000000u);
  EXPECT_EQ(stamps[0], 1'000'000'000);
  EXPECT_EQ(stamps[1], 1'200'000'000);
}

TEST(DeviceInputsTest, ButtonPressIsKeyDownSyncKeyUpSync) {
  const std::string records = MakeButtonPressRecords(KEY_WPS_BUTTON, 5'000'001);

  ASSERT_EQ(records.size(), 4 * sizeof(input_event));
  input_event events[4];
  memcpy(events, records.data(), sizeof(events));
  EXPECT_EQ(events[0].type, EV_KEY);
  EXPECT_EQ(events[0].code, KEY_WPS_BUTTON);
  EXPECT_EQ(events[0].value, 1);
  EXPECT_EQ(events[0].input_event_sec, 5);
  EXPECT_EQ(events[0].input_event_usec, 1);
  EXPECT_EQ(events[1].type, EV_SYN);
  EXPECT_EQ(events[2].type, EV_KEY);
  EXPECT_EQ(events[2].value, 0);
  EXPECT_EQ(events[3].type, EV_SYN);
}

}  // namespace
}  // namespace morvane::ap
