#include "av/fake_input_device.h"

#include <fcntl.h>
#include <linux/input.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "av/input_manager.h"
#include "common/platform_settings.h"

namespace morvane::ap {
namespace {

std::string MakeTempDir() {
  std::string pattern = testing::TempDir() + "/input.XXXXXX";
  EXPECT_NE(mkdtemp(pattern.data()), nullptr) << strerror(errno);
  return pattern;
}

}  // namespace

std::string InputRecord(int64_t time_us, uint16_t type, uint16_t code,
                        int32_t value) {
  input_event record{};
  record.input_event_sec =
      static_cast<decltype(record.input_event_sec)>(time_us / 1'000'000);
  record.input_event_usec =
      static_cast<decltype(record.input_event_usec)>(time_us % 1'000'000);
  record.type = type;
  record.code = code;
  record.value = value;
  return std::string(reinterpret_cast<const char*>(&record), sizeof(record));
}

FakeInputDevice::FakeInputDevice()
    : dir_(MakeTempDir()), path_(dir_ + "/event0") {
  if (mkfifo(path_.c_str(), 0600) == 0) {
    fd_ = open(path_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  }
  EXPECT_GE(fd_, 0) << path_ << ": " << strerror(errno);
}

FakeInputDevice::~FakeInputDevice() {
  CloseWriter();
  std::error_code ec;
  std::filesystem::remove_all(dir_, ec);
}

std::string FakeInputDevice::MakeSysroot(const std::string& clip) const {
  const std::filesystem::path root = dir_ + "/root";
  const std::filesystem::path settings =
      root.string() + PlatformSettings::kPlatformSettingsPath;
  const std::filesystem::path clip_path =
      root.string() + InputManager::kFeedbackAudioPath;
  std::filesystem::create_directories(settings.parent_path());
  std::filesystem::create_directories(clip_path.parent_path());
  std::ofstream(settings) << "PLATFORM_TOUCH_INPUT_EVENT_PATH='" << path_
                          << "'\n";
  std::ofstream(clip_path) << clip;
  return root;
}

void FakeInputDevice::Write(const std::string& bytes) {
  EXPECT_EQ(write(fd_, bytes.data(), bytes.size()),
            static_cast<ssize_t>(bytes.size()))
      << strerror(errno);
}

void FakeInputDevice::CloseWriter() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

}  // namespace morvane::ap
