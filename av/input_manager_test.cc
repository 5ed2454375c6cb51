// The manager against the stand-in audio library, selected and observed
// through its environment, and a FIFO as the touch device.

#include "av/input_manager.h"

#include <linux/input.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "av/fake_input_device.h"
#include "platform/fake_task_loop.h"
#include "tests/fixtures/log_capture.h"

namespace morvane::ap {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Seven bytes: three whole frames and an odd byte that is never played.
constexpr char kClip[] = "\x01\x02\x03\x04\x05\x06\x07";
constexpr char kPlayLine[] =
    "play frames=3 format=2 rate=48000 channels=1 device=0 bytes=6 -> 0";

class InputManagerTest : public testing::Test {
 protected:
  void SetUp() override {
    const std::string root = device_.dir() + "/root";
    WriteFile(root + "/usr/share/ap/platform-settings.sh",
              "PLATFORM_TOUCH_INPUT_EVENT_PATH='" + device_.path() + "'\n");
    WriteFile(root + InputManager::kFeedbackAudioPath, kClip);
    setenv("AVD_SYSROOT", root.c_str(), 1);
    setenv("PAVO_LOG", Path("pavo.log").c_str(), 1);
    setenv("PAVO_CAPTURE", Path("capture.raw").c_str(), 1);
    setenv("PAVO_DOWN", Path("pavo_down").c_str(), 1);
    manager_ = std::make_unique<InputManager>(&loop_);
  }

  void TearDown() override {
    manager_.reset();
    for (const char* name : {"AVD_SYSROOT", "PAVO_LOG", "PAVO_CAPTURE",
                             "PAVO_DOWN"}) {
      unsetenv(name);
    }
  }

  std::string Path(const std::string& name) const {
    return device_.dir() + "/" + name;
  }

  static void WriteFile(const std::string& path, const std::string& text) {
    std::filesystem::create_directories(
        std::filesystem::path(path).parent_path());
    std::ofstream(path) << text;
  }

  std::string ReadFile(const std::string& name) const {
    std::ostringstream text;
    text << std::ifstream(Path(name)).rdbuf();
    return text.str();
  }

  std::vector<std::string> PavoCalls() const {
    std::vector<std::string> lines;
    std::istringstream text(ReadFile("pavo.log"));
    for (std::string line; std::getline(text, line);) lines.push_back(line);
    return lines;
  }

  void Send(uint16_t type, int32_t value) {
    device_.WriteEvent(type, KEY_WPS_BUTTON, value);
    loop_.RunUntilIdle();
  }
  void Press() { Send(EV_KEY, 1); }

  FakeTaskLoop loop_;
  FakeInputDevice device_;
  LogCapture log_;
  std::unique_ptr<InputManager> manager_;
};

TEST_F(InputManagerTest, ClicksAtMostOncePerInterval) {
  Press();
  loop_.FastForwardBy(150'000);
  Press();
  // Exactly the interval after the first click: the quiet press above did
  // not move it.
  loop_.FastForwardBy(50'000);
  Press();

  EXPECT_THAT(log_.Messages(google::GLOG_INFO),
              ElementsAre("Button down: 529", "Button down: 529",
                          "Button down: 529"));
  // One connection, kept for the second click.
  EXPECT_THAT(PavoCalls(), ElementsAre("connect 0", "device 0 0 -> 0",
                                       kPlayLine, "device 0 0 -> 0",
                                       kPlayLine));
  EXPECT_EQ(ReadFile("capture.raw"), "\x01\x02\x03\x04\x05\x06"
                                     "\x01\x02\x03\x04\x05\x06");
}

TEST_F(InputManagerTest, OnlyKeyPressesCount) {
  Send(EV_KEY, 0);  // Release.
  Send(EV_KEY, 2);  // Autorepeat.
  Send(EV_SYN, 1);

  EXPECT_THAT(log_.Messages(google::GLOG_INFO), IsEmpty());
  EXPECT_THAT(PavoCalls(), IsEmpty());

  Press();
  EXPECT_THAT(PavoCalls(), ElementsAre("connect 0", "device 0 0 -> 0",
                                       kPlayLine));
}

TEST_F(InputManagerTest, ConnectsAgainOnceTheAudioServerIsBack) {
  WriteFile(Path("pavo_down"), "");
  Press();
  EXPECT_THAT(log_.Messages(google::GLOG_WARNING),
              ElementsAre("Failed to create pavo client: -111"));

  // The failed attempt started a quiet period: no new attempt yet.
  loop_.FastForwardBy(100'000);
  Press();
  std::filesystem::remove(Path("pavo_down"));
  loop_.FastForwardBy(100'000);
  Press();

  EXPECT_THAT(PavoCalls(), ElementsAre("connect -111", "connect 0",
                                       "device 0 0 -> 0", kPlayLine));
  EXPECT_EQ(log_.Messages(google::GLOG_WARNING).size(), 1u);
}

}  // namespace
}  // namespace morvane::ap
