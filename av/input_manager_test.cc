// The manager against the stand-in audio library, selected and observed
// through its environment, and a FIFO as the touch device.

#include "av/input_manager.h"

#include <linux/input.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/fixtures/fake_input_device.h"
#include "platform/fake_task_loop.h"
#include "tests/fixtures/log_capture.h"
#include "tests/fixtures/temp_dir.h"

namespace morvane::ap {
namespace {

using testing::ElementsAre;

// Seven bytes: three whole frames and an odd byte that is never played.
constexpr char kClip[] = "\x01\x02\x03\x04\x05\x06\x07";
constexpr char kPlayLine[] =
    "play frames=3 format=2 rate=48000 channels=1 device=0 bytes=6 -> 0";

class InputManagerTest : public testing::Test {
 protected:
  void SetUp() override {
    setenv("AVD_SYSROOT", device_.MakeSysroot(kClip).c_str(), 1);
    setenv("PAVO_LOG", (device_.dir() + "/pavo.log").c_str(), 1);
    setenv("PAVO_CAPTURE", (device_.dir() + "/capture.raw").c_str(), 1);
    setenv("PAVO_DOWN", down_file_.c_str(), 1);
    manager_ = std::make_unique<InputManager>(&loop_);
  }

  std::vector<std::string> PavoCalls() const {
    return ReadLines(device_.dir() + "/pavo.log");
  }

  void Send(uint16_t type, int32_t value = 1) {
    device_.WriteEvent(type, KEY_WPS_BUTTON, value);
    loop_.RunUntilIdle();
  }

  FakeTaskLoop loop_;
  FakeInputDevice device_;
  const std::string down_file_ = device_.dir() + "/pavo_down";
  LogCapture log_;
  std::unique_ptr<InputManager> manager_;
};

TEST_F(InputManagerTest, ClicksOnKeyPressesAtMostOncePerIntervalAndReconnects) {
  Send(EV_KEY);  // Press.
  Send(EV_KEY, 0);  // Release.
  Send(EV_KEY, 2);  // Autorepeat.
  Send(EV_SYN, 1);
  loop_.FastForwardBy(150'000);
  Send(EV_KEY);
  // Exactly the interval after the first click: the quiet press above did
  // not move it.
  loop_.FastForwardBy(50'000);
  Send(EV_KEY);

  // Another manager, the audio server down at first.
  std::ofstream(down_file_).flush();
  manager_ = std::make_unique<InputManager>(&loop_);
  Send(EV_KEY);
  // The failed attempt started a quiet period: no new attempt yet.
  loop_.FastForwardBy(100'000);
  Send(EV_KEY);
  std::filesystem::remove(down_file_);
  loop_.FastForwardBy(100'000);
  Send(EV_KEY);

  EXPECT_THAT(log_.Messages(google::GLOG_WARNING),
              ElementsAre("Failed to create pavo client: -111",
                          "Failed to connect to the audio server: "
                          "ECONNREFUSED (Connection refused); each press "
                          "tries again"));
  EXPECT_THAT(log_.Messages(google::GLOG_INFO),
              ElementsAre("Button down: 529", "Button down: 529",
                          "Button down: 529", "Button down: 529",
                          "Button down: 529", "Button down: 529",
                          "Connected to the audio server"));
  // One connection, kept for the second click and closed with its manager.
  EXPECT_THAT(PavoCalls(), ElementsAre("connect 0", "device 0 0 -> 0",
                                       kPlayLine, "device 0 0 -> 0", kPlayLine,
                                       "destroy", "connect -111", "connect 0",
                                       "device 0 0 -> 0", kPlayLine));
}

}  // namespace
}  // namespace morvane::ap
