#include "av/iio_event_stream.h"

#include <dirent.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include "tests/fixtures/fake_iio_event_stream.h"
#include "platform/fake_task_loop.h"
#include "tests/fixtures/log_capture.h"

namespace morvane::ap {
namespace {

using ::testing::ElementsAre;

class IioEventStreamTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(pipe2(pipe_, O_CLOEXEC), 0); }
  void TearDown() override {
    if (pipe_[1] >= 0) close(pipe_[1]);
  }

  void Send(uint64_t id, int64_t timestamp_ns) {
    const IioEvent event{id, timestamp_ns};
    ASSERT_EQ(write(pipe_[1], &event, sizeof(event)), 16);
  }

  FakeTaskLoop loop_;
  int pipe_[2];
};

TEST_F(IioEventStreamTest, DeliversEveryWholeRecordAndDropsOddOnes) {
  FakeIioEventStream stream(pipe_[0], &loop_);
  std::vector<uint64_t> delivered;
  stream.set_event_callback(
      [&](const IioEvent& event) { delivered.push_back(event.id); });
  ASSERT_TRUE(stream.Start());
  LogCapture log;

  Send(1, 10);
  Send(2, 20);
  loop_.RunUntilIdle();
  ASSERT_EQ(write(pipe_[1], "12345678", 8), 8);
  loop_.RunUntilIdle();
  Send(3, 30);
  loop_.RunUntilIdle();

  EXPECT_THAT(delivered, ElementsAre(1u, 2u, 3u));
  EXPECT_THAT(log.Messages(google::GLOG_WARNING),
              ElementsAre("Event size different than expected: 8"));
}

TEST_F(IioEventStreamTest, ABrokenSourceStopsDeliveryWithOneWarning) {
  // A pseudo-terminal whose other side is gone fails every read (EIO); a
  // pipe whose writer is gone ends.
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(terminal, 0);
  ASSERT_EQ(grantpt(terminal) | unlockpt(terminal), 0);
  close(open(ptsname(terminal), O_RDWR | O_NOCTTY));
  const struct {
    int fd;
    const char* warning;
  } kCases[] = {{terminal, "Failed to read event: Input/output error"},
                {pipe_[0], "Failed to read event: end of stream"}};
  close(pipe_[1]);
  pipe_[1] = -1;
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.warning);
    FakeIioEventStream stream(c.fd, &loop_);
    ASSERT_TRUE(stream.Start());
    LogCapture log;

    loop_.RunUntilIdle();

    EXPECT_THAT(log.Messages(google::GLOG_WARNING), ElementsAre(c.warning));
    EXPECT_EQ(loop_.PendingTaskCount(), 0u) << "still watching";
  }
}

// The descriptors this process has open.
size_t OpenDescriptors() {
  size_t count = 0;
  DIR* dir = opendir("/proc/self/fd");
  while (readdir(dir)) ++count;
  closedir(dir);
  return count;
}

TEST(IioEventStreamDeviceTest, ANodeThatIsNoIioDeviceFailsWithoutLeaking) {
  FakeTaskLoop loop;
  LogCapture log;
  const size_t before = OpenDescriptors();

  IioEventStream stream("/dev/null", &loop);
  EXPECT_FALSE(stream.Start());
  IioEventStream missing("/nonexistent/iio:device0", &loop);
  EXPECT_FALSE(missing.Start());

  EXPECT_EQ(OpenDescriptors(), before);
  EXPECT_THAT(log.Messages(google::GLOG_WARNING),
              ElementsAre("Could not get event descriptor from device "
                          "descriptor",
                          "Unable to open IIO device",
                          "Could not open device descriptor",
                          "Unable to open IIO device"));
}

}  // namespace
}  // namespace morvane::ap
