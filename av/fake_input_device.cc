#include "av/fake_input_device.h"

#include <fcntl.h>
#include <linux/input.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include <gtest/gtest.h>

namespace morvane::ap {

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

FakeInputDevice::FakeInputDevice() {
  std::string pattern = testing::TempDir() + "/input.XXXXXX";
  if (!mkdtemp(pattern.data())) {
    ADD_FAILURE() << "mkdtemp: " << strerror(errno);
    return;
  }
  dir_ = pattern;
  path_ = dir_ + "/event0";
  if (mkfifo(path_.c_str(), 0600) != 0) {
    ADD_FAILURE() << "mkfifo " << path_ << ": " << strerror(errno);
    return;
  }
  fd_ = open(path_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (fd_ < 0) ADD_FAILURE() << "open " << path_ << ": " << strerror(errno);
}

FakeInputDevice::~FakeInputDevice() {
  CloseWriter();
  if (!dir_.empty()) {
    std::error_code ec;
    std::filesystem::remove_all(dir_, ec);
  }
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
