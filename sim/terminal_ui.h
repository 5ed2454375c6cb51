#ifndef SIM_TERMINAL_UI_H_
#define SIM_TERMINAL_UI_H_

#include <termios.h>

#include <deque>
#include <string>

#include "platform/error.h"
#include "platform/task_loop.h"
#include "sim/simulator.h"

namespace morvane::ap {

class EventLoop;

// Interactive mode: a full-screen view of the light ring (coloured by light
// state, dimmed by master brightness), the flags and a scrolling event log,
// driven by single keys (? lists them). Laid out for 80x24 and redrawn
// when the terminal is resized.
class TerminalUi : public Simulator::Observer {
 public:
  // |loop| must outlive this object.
  explicit TerminalUi(EventLoop* loop);
  TerminalUi(const TerminalUi&) = delete;
  TerminalUi& operator=(const TerminalUi&) = delete;
  // Restores the terminal if Stop() was not called.
  ~TerminalUi() override;

  // Puts the terminal in single-key mode on the alternate screen and starts
  // reading keys for |simulator|, which must outlive this object. Returns
  // false and adds to |error| when stdin is not a terminal.
  bool Start(Simulator* simulator, ErrorPtr* error);

  // Restores the terminal and prints the last events on the normal screen.
  void Stop();

  void OnLine(const std::string& line) override;
  void OnStateChanged() override;

  // Maps a key to a simulator command given the current state; empty when
  // the key means nothing.
  static std::string CommandForKey(char key, const SimState& state);

 private:
  void OnReadable();
  void ScheduleRedraw();
  void Redraw();

  EventLoop* const loop_;
  Simulator* simulator_ = nullptr;
  bool active_ = false;
  termios saved_{};
  TaskId key_watch_ = 0;
  TaskId redraw_task_ = 0;
  std::deque<std::string> log_;
  bool show_keys_ = false;  // ? shows the keys in place of the log.
};

}  // namespace morvane::ap

#endif  // SIM_TERMINAL_UI_H_
