#include "platform/async_event_sequencer.h"

#include <glog/logging.h>

#include <utility>

namespace morvane::ap {

struct AsyncEventSequencer::State {
  void MaybeFinish() {
    if (outstanding > 0 || !action) return;
    CompletionAction run = std::move(action);
    action = nullptr;
    run(all_succeeded);
  }

  int outstanding = 0;
  bool all_succeeded = true;
  CompletionAction action;
};

AsyncEventSequencer::AsyncEventSequencer()
    : state_(std::make_shared<State>()) {}

AsyncEventSequencer::~AsyncEventSequencer() = default;

AsyncEventSequencer::Handler AsyncEventSequencer::GetHandler(
    const std::string& descriptive_message, bool failure_is_fatal) {
  ++state_->outstanding;
  auto called = std::make_shared<bool>(false);
  return [state = state_, called, descriptive_message,
          failure_is_fatal](bool success) {
    CHECK(!*called) << "Handler called twice: " << descriptive_message;
    *called = true;
    if (!success) {
      if (failure_is_fatal) LOG(FATAL) << descriptive_message;
      LOG(WARNING) << descriptive_message;
      state->all_succeeded = false;
    }
    --state->outstanding;
    state->MaybeFinish();
  };
}

void AsyncEventSequencer::OnAllTasksCompletedCall(CompletionAction action) {
  CHECK(!state_->action) << "OnAllTasksCompletedCall called twice";
  state_->action = std::move(action);
  state_->MaybeFinish();
}

}  // namespace morvane::ap
