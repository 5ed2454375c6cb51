#ifndef SIM_SCRIPT_UI_H_
#define SIM_SCRIPT_UI_H_

#include <string>

#include "platform/task_loop.h"
#include "sim/simulator.h"

namespace morvane::ap {

class EventLoop;

// Script mode: commands from stdin, one per line; every line the simulator
// reports goes to stdout at once, one per line. End of input quits.
class ScriptUi : public Simulator::Observer {
 public:
  // |loop| must outlive this object.
  explicit ScriptUi(EventLoop* loop);
  ScriptUi(const ScriptUi&) = delete;
  ScriptUi& operator=(const ScriptUi&) = delete;
  ~ScriptUi() override;

  // Starts reading commands for |simulator|, which must outlive this object.
  void Start(Simulator* simulator);

  void OnLine(const std::string& line) override;
  void OnStateChanged() override {}

 private:
  void OnReadable();

  EventLoop* const loop_;
  Simulator* simulator_ = nullptr;
  TaskId watch_ = 0;
  std::string pending_;
};

}  // namespace morvane::ap

#endif  // SIM_SCRIPT_UI_H_
