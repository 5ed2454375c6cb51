#include "platform/event_loop.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <time.h>

#include <memory>

#include "tests/fixtures/log_capture.h"

namespace morvane::ap {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr int64_t kBlockUs = 50'000;
constexpr int64_t kDelayUs = 30'000;
constexpr int64_t kGiveUpUs = 5'000'000;

// Stands for a blocking D-Bus call made from a callback.
void BlockFor(int64_t us) {
  const timespec ts{0, static_cast<long>(us * 1000)};
  nanosleep(&ts, nullptr);
}

class EventLoopTest : public testing::Test {
 protected:
  void SetUp() override {
    loop_ = EventLoop::Create(nullptr);
    ASSERT_TRUE(loop_);
    loop_->PostDelayedTask([this] { loop_->Quit(1); }, kGiveUpUs);
  }

  std::unique_ptr<EventLoop> loop_;
};

TEST_F(EventLoopTest, DelayCountsFromWhenPostedAndAnEndedLoopTakesNoTask) {
  LogCapture log;
  int64_t posted_at = 0;
  int64_t ran_at = 0;
  loop_->PostTask([&] {
    BlockFor(kBlockUs);
    posted_at = loop_->Now();
    loop_->PostDelayedTask(
        [&] {
          ran_at = loop_->Now();
          loop_->Quit(0);
        },
        kDelayUs);
  });

  ASSERT_EQ(loop_->Run(), 0);
  EXPECT_GE(ran_at - posted_at, kDelayUs);

  // The ended loop logs each refusal and gives no id.
  EXPECT_EQ(loop_->WatchReadable(-1, [] {}), 0u);
  EXPECT_EQ(loop_->PostDelayedTask([] {}, kDelayUs), 0u);
  EXPECT_EQ(loop_->PostTask([] {}), 0u);

  const std::vector<std::string> errors = log.Messages(google::GLOG_ERROR);
  ASSERT_EQ(errors.size(), 3u);
  EXPECT_THAT(errors[0], HasSubstr("Failed to watch descriptor -1"));
  EXPECT_THAT(errors[1], HasSubstr("Failed to post a task in 30000 us"));
  EXPECT_THAT(errors[2], HasSubstr("Failed to post a task"));
}

}  // namespace
}  // namespace morvane::ap
