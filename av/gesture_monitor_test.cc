#include "av/gesture_monitor.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/fixtures/fake_iio_event_stream.h"
#include "platform/fake_task_loop.h"
#include "tests/fixtures/log_capture.h"

namespace morvane::ap {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// The kernel's event code of a threshold event: |type| in bits 56-63,
// |direction| in 48-54, |channel_type| in 32-39.
uint64_t EventId(uint64_t type, uint64_t direction, uint64_t channel_type) {
  return type << 56 | direction << 48 | channel_type << 32;
}
constexpr uint64_t kRising = 1;
constexpr uint64_t kFalling = 2;
constexpr uint64_t kProximity = 8;
constexpr int64_t kMs = 1'000'000;

class GestureMonitorTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(pipe2(pipe_, O_CLOEXEC), 0);
    monitor_ = std::make_unique<GestureMonitor>(
        std::make_unique<FakeIioEventStream>(pipe_[0], &loop_));
    monitor_->set_wave_callback(
        [this](const IioEvent& rising) { waves_.push_back(rising.timestamp_ns); });
  }
  void TearDown() override { close(pipe_[1]); }

  void Send(uint64_t id, int64_t timestamp_ns) {
    const IioEvent event{id, timestamp_ns};
    ASSERT_EQ(write(pipe_[1], &event, sizeof(event)), 16);
  }
  void Fall(int64_t ms) { Send(EventId(0, kFalling, kProximity), ms * kMs); }
  void Rise(int64_t ms) { Send(EventId(0, kRising, kProximity), ms * kMs); }

  // The timestamps (ms) of the rising events reported as waves.
  std::vector<int64_t> Waves() {
    loop_.RunUntilIdle();
    std::vector<int64_t> ms;
    for (int64_t ns : waves_) ms.push_back(ns / kMs);
    waves_.clear();
    return ms;
  }

  FakeTaskLoop loop_;
  int pipe_[2];
  std::unique_ptr<GestureMonitor> monitor_;
  std::vector<int64_t> waves_;
};

TEST_F(GestureMonitorTest, AWaveIsARiseWithinHalfASecondOfTheLastFall) {
  LogCapture log;
  Rise(50);  // before any fall
  Fall(1000);
  Rise(1300);
  Rise(1499);  // the same fall makes a second wave
  EXPECT_THAT(Waves(), ElementsAre(1300, 1499));

  Fall(2000);
  Rise(2600);
  EXPECT_THAT(Waves(), IsEmpty());

  // Foreign events are warned of and change nothing.
  Fall(3000);
  Send(EventId(1, kFalling, kProximity), 3200 * kMs);  // magnitude
  Send(EventId(0, kFalling, 6), 3200 * kMs);           // light
  Send(EventId(0, 0, kProximity), 3200 * kMs);         // either direction
  Fall(3400);  // the window counts from here
  Rise(3800);
  EXPECT_THAT(Waves(), ElementsAre(3800));
  EXPECT_THAT(log.Messages(google::GLOG_WARNING),
              ElementsAre("Unexpected event type: 1",
                          "Unexpected channel type: 6",
                          "Unexpected event direction: 0"));

  // The edge, to the nanosecond.
  Fall(5000);
  Send(EventId(0, kRising, kProximity), 5000 * kMs + 499'999'999);
  Send(EventId(0, kRising, kProximity), 5000 * kMs + 500'000'000);
  loop_.RunUntilIdle();
  EXPECT_THAT(waves_, ElementsAre(5000 * kMs + 499'999'999));
}

}  // namespace
}  // namespace morvane::ap
