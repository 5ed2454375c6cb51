#ifndef PLATFORM_ASYNC_EVENT_SEQUENCER_H_
#define PLATFORM_ASYNC_EVENT_SEQUENCER_H_

#include <functional>
#include <memory>
#include <string>

namespace morvane::ap {

// Collects the completions of asynchronous start-up steps (object
// registrations) and runs one action once all of them have reported.
class AsyncEventSequencer {
 public:
  using Handler = std::function<void(bool success)>;
  using CompletionAction = std::function<void(bool all_succeeded)>;

  AsyncEventSequencer();
  AsyncEventSequencer(const AsyncEventSequencer&) = delete;
  AsyncEventSequencer& operator=(const AsyncEventSequencer&) = delete;
  ~AsyncEventSequencer();

  // A handler for one step; it must be called exactly once. A call with
  // false logs |descriptive_message|; when |failure_is_fatal| it ends the
  // process with that message instead. Handlers stay safe to call after the
  // sequencer is gone.
  Handler GetHandler(const std::string& descriptive_message,
                     bool failure_is_fatal);

  // Runs |action| once every handler handed out so far has been called: at
  // once, inside this call, when none is outstanding, otherwise inside the
  // last handler call. A handler handed out after the action ran is not
  // waited for. Call once.
  void OnAllTasksCompletedCall(CompletionAction action);

 private:
  struct State;

  const std::shared_ptr<State> state_;
};

}  // namespace morvane::ap

#endif  // PLATFORM_ASYNC_EVENT_SEQUENCER_H_
