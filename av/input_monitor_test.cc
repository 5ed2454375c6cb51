#include "av/input_monitor.h"

#include <fcntl.h>
#include <linux/input.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "tests/fixtures/fake_input_device.h"
#include "platform/fake_task_loop.h"
#include "tests/fixtures/log_capture.h"

namespace morvane::ap {
namespace {

using testing::ElementsAre;
using testing::FieldsAre;
using testing::IsEmpty;

// The kernel's record on the machine the test is built for: the device is
// 32-bit ARM, the workstations are 64-bit.
#if defined(__arm__)
constexpr size_t kKernelRecordSize = 16;
#else
constexpr size_t kKernelRecordSize = 24;
#endif

template <typename T>
void Append(std::string* bytes, T value) {
  char raw[sizeof(T)];
  memcpy(raw, &value, sizeof(T));
  bytes->append(raw, sizeof(T));
}

class InputMonitorTest : public testing::Test {
 protected:
  void SetUp() override {
    // open() takes the lowest free descriptor: this one.
    monitor_fd_ = dup(0);
    close(monitor_fd_);
    ASSERT_TRUE(monitor_->Start(nullptr));
  }

  FakeTaskLoop loop_;
  FakeInputDevice device_;
  int monitor_fd_ = -1;
  LogCapture log_;
  std::vector<InputEvent> events_;
  std::unique_ptr<InputMonitor> monitor_ = std::make_unique<InputMonitor>(
      &loop_, device_.path(),
      [this](const InputEvent& event) { events_.push_back(event); });
};

TEST_F(InputMonitorTest, DeliversPendingRecordsInOrderAndDropsShortReads) {
  // The first record laid out as the kernel writes it, not through struct
  // input_event: the time as two C longs, then type, code and value.
  std::string kernel;
  Append<long>(&kernel, 1'700'000'005);
  Append<long>(&kernel, 80'000);
  Append<uint16_t>(&kernel, EV_KEY);
  Append<uint16_t>(&kernel, KEY_WPS_BUTTON);
  Append<int32_t>(&kernel, 1);
  ASSERT_EQ(kernel.size(), kKernelRecordSize);
  // A time beyond any clock saturates: 64-bit seconds (a 64-bit machine)
  // hold more than microseconds can.
  input_event beyond{};
  beyond.input_event_sec =
      std::numeric_limits<decltype(beyond.input_event_sec)>::max();
  beyond.input_event_usec = 999'999;
  const int64_t saturated = sizeof(beyond.input_event_sec) == 8
                                ? std::numeric_limits<int64_t>::max()
                                : int64_t{INT32_MAX} * 1'000'000 + 999'999;

  device_.Write(kernel + MakeInputRecord(5'000'001, EV_KEY, KEY_WPS_BUTTON, 0) +
                std::string(reinterpret_cast<const char*>(&beyond),
                            sizeof(beyond)));
  loop_.RunUntilIdle();
  device_.Write(MakeInputRecord(0, EV_KEY, KEY_WPS_BUTTON, 1).substr(0, 8));
  loop_.RunUntilIdle();
  device_.WriteEvent(EV_KEY, KEY_WPS_BUTTON, 2);
  loop_.RunUntilIdle();

  EXPECT_THAT(events_,
              ElementsAre(FieldsAre(1'700'000'005'080'000, EV_KEY,
                                    KEY_WPS_BUTTON, 1),
                          FieldsAre(5'000'001, EV_KEY, KEY_WPS_BUTTON, 0),
                          FieldsAre(saturated, 0, 0, 0),
                          FieldsAre(0, EV_KEY, KEY_WPS_BUTTON, 2)));
  EXPECT_THAT(log_.Messages(google::GLOG_WARNING),
              ElementsAre("Unexpected event size: 8"));
  EXPECT_EQ(loop_.PendingTaskCount(), 1u);
}

TEST_F(InputMonitorTest, ReadErrorOrEndOfStreamClosesTheDeviceInsteadOfSpinning) {
  // A directory in the device's place: readable by poll(), read() fails.
  const int dir = open(device_.dir().c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_EQ(dup2(dir, monitor_fd_), monitor_fd_);
  close(dir);
  loop_.RunUntilIdle();
  EXPECT_EQ(fcntl(monitor_fd_, F_GETFD), -1) << "descriptor still open";
  // Started again on the device itself, whose writer then goes.
  ASSERT_TRUE(monitor_->Start(nullptr));
  ASSERT_NE(fcntl(monitor_fd_, F_GETFD), -1);
  device_.CloseWriter();

  loop_.RunUntilIdle();

  EXPECT_THAT(log_.Messages(google::GLOG_WARNING),
              ElementsAre("Failed to read event: Is a directory",
                          "Failed to read event: end of stream"));
  EXPECT_EQ(fcntl(monitor_fd_, F_GETFD), -1) << "descriptor still open";
}

}  // namespace
}  // namespace morvane::ap
