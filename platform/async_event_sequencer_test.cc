#include "platform/async_event_sequencer.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace morvane::ap {
namespace {

TEST(AsyncEventSequencerTest, ActionRunsOnceAfterTheLastHandlerOrAtOnce) {
  AsyncEventSequencer sequencer;
  auto first = sequencer.GetHandler("first", false);
  auto second = sequencer.GetHandler("second", false);
  std::vector<bool> runs;
  sequencer.OnAllTasksCompletedCall([&](bool ok) { runs.push_back(ok); });

  second(true);
  EXPECT_TRUE(runs.empty());
  first(true);
  EXPECT_EQ(runs, std::vector<bool>{true});

  AsyncEventSequencer idle;
  idle.OnAllTasksCompletedCall([&](bool ok) { runs.push_back(ok); });
  EXPECT_EQ(runs, (std::vector<bool>{true, true}));
}

TEST(AsyncEventSequencerTest, NonFatalFailureIsReportedToTheAction) {
  AsyncEventSequencer sequencer;
  auto failing =
      sequencer.GetHandler("Optional.RegisterAsync() failed.", false);
  auto passing = sequencer.GetHandler("other", true);
  std::optional<bool> result;
  sequencer.OnAllTasksCompletedCall([&](bool ok) { result = ok; });

  failing(false);
  passing(true);

  EXPECT_EQ(result, std::optional<bool>(false));
}

TEST(AsyncEventSequencerDeathTest, FatalFailureEndsTheProcessWithItsMessage) {
  AsyncEventSequencer sequencer;
  auto handler = sequencer.GetHandler("Manager.RegisterAsync() failed.", true);

  EXPECT_DEATH(handler(false), "Manager\\.RegisterAsync\\(\\) failed\\.");
}

}  // namespace
}  // namespace morvane::ap
