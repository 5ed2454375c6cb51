#ifndef SIM_SCRIPT_UI_H_
#define SIM_SCRIPT_UI_H_

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "platform/task_loop.h"
#include "platform/timer.h"
#include "sim/simulator.h"

namespace morvane::ap {

class EventLoop;
class Record;

// Script mode: commands from stdin, one per line, run in order; every line
// the simulator reports goes to stdout at once. Commands wait until the
// daemon is first ready (or has failed). Besides the simulator's commands
// (sim/commands.h) it runs:
//   wait ready [SECONDS]    until the daemon owns its name (default 30 s);
//   wait PATTERN [SECONDS]  until a line reported since the last other
//                           command contains PATTERN ("quoted" when it has
//                           spaces; default 10 s);
//   sleep MS                pauses the script;
//   timeline FILE.svg       writes the session's timeline so far;
//   quit, or end of input   once nothing has been reported for a moment, so
//                           that events under way arrive, ends the loop.
// A time-out or a command that cannot run reports "error ..." and marks
// the script failed; the script goes on.
class ScriptUi : public Simulator::Observer {
 public:
  static constexpr int64_t kDefaultWaitMs = 10'000;
  static constexpr int64_t kReadyWaitMs = 30'000;
  // quit waits for this long a silence, but no longer than kQuitMaxMs.
  static constexpr int64_t kQuietMs = 500;
  static constexpr int64_t kQuitMaxMs = 5'000;

  // |loop| must outlive this object.
  explicit ScriptUi(EventLoop* loop);
  ScriptUi(const ScriptUi&) = delete;
  ScriptUi& operator=(const ScriptUi&) = delete;
  ~ScriptUi() override;

  // Starts reading commands for |simulator| and |record|, which must
  // outlive this object.
  void Start(Simulator* simulator, Record* record);

  // A command failed or a wait timed out.
  bool failed() const { return failed_; }

  void OnLine(const std::string& line) override;
  void OnStateChanged() override;

 private:
  enum class Block {
    kNone, kFirstReady, kReady, kPattern, kSleep, kQuiet, kQuitting
  };

  void Quit();

  void OnReadable();
  // Queues the commands of what stdin has; false at its end.
  bool ReadInput();
  // Runs queued commands until one blocks or none is left.
  void RunQueued();
  // Runs one command; false when it blocks the script.
  bool Run(const std::string& line);
  void Wait(Block block, const std::string& pattern, int64_t timeout_ms);
  void Unblock();
  void Fail(const std::string& why);

  EventLoop* const loop_;
  Simulator* simulator_ = nullptr;
  Record* record_ = nullptr;
  TaskId watch_ = 0;
  std::string pending_;
  std::deque<std::string> queue_;
  Block block_ = Block::kFirstReady;
  std::string pattern_;
  std::string wait_text_;  // What a time-out reports.
  // Lines reported since the last command other than wait ran.
  std::vector<std::string> recent_;
  OneShotTimer timer_;
  int64_t quit_by_ms_ = 0;
  bool failed_ = false;
  TaskId run_task_ = 0;
};

}  // namespace morvane::ap

#endif  // SIM_SCRIPT_UI_H_
