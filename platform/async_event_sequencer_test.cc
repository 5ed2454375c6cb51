#include "platform/async_event_sequencer.h"

#include <gtest/gtest.h>

#include <vector>

namespace morvane::ap {
namespace {

TEST(AsyncEventSequencerTest, ActionRunsOnceAfterTheLastHandlerWithTheOutcome) {
  AsyncEventSequencer sequencer;
  auto first = sequencer.GetHandler("first", false);
  auto second = sequencer.GetHandler("second", true);
  AsyncEventSequencer failing;
  auto optional = failing.GetHandler("Optional.RegisterAsync() failed.", false);
  std::vector<bool> runs;
  sequencer.OnAllTasksCompletedCall([&](bool ok) { runs.push_back(ok); });
  failing.OnAllTasksCompletedCall([&](bool ok) { runs.push_back(ok); });

  second(true);
  EXPECT_TRUE(runs.empty());
  first(true);
  EXPECT_EQ(runs, std::vector<bool>{true});
  optional(false);  // Not fatal: reported to the action.
  EXPECT_EQ(runs, (std::vector<bool>{true, false}));

  AsyncEventSequencer idle;
  idle.OnAllTasksCompletedCall([&](bool ok) { runs.push_back(ok); });
  EXPECT_EQ(runs, (std::vector<bool>{true, false, true}));
}

TEST(AsyncEventSequencerDeathTest, FatalFailureEndsTheProcessWithItsMessage) {
  AsyncEventSequencer sequencer;
  auto handler = sequencer.GetHandler("Manager.RegisterAsync() failed.", true);

  EXPECT_DEATH(handler(false), "Manager\\.RegisterAsync\\(\\) failed\\.");
}

}  // namespace
}  // namespace morvane::ap
