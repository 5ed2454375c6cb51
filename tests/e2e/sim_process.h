#ifndef TESTS_E2E_SIM_PROCESS_H_
#define TESTS_E2E_SIM_PROCESS_H_

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace morvane::ap {

// Runs `ap-sim --script` (or another program: Run) with pipes on stdin and
// stdout (stderr joins stdout) and lets a test wait for its output lines
// with a time-out. The destructor kills the simulator by pid if it still
// runs, so a hung run fails the test instead of hanging it.
class SimProcess {
 public:
  static constexpr int64_t kDefaultTimeoutMs = 10'000;
  // What the simulator still reports once the daemon has ended comes within
  // this; a line the daemon would have caused never does.
  static constexpr int64_t kAfterDaemonEndMs = 1'000;

  SimProcess() = default;
  SimProcess(const SimProcess&) = delete;
  SimProcess& operator=(const SimProcess&) = delete;
  ~SimProcess();

  // Starts |sim_binary| --script --avd=|avd_binary| plus |extra_args|.
  // Returns false if it cannot be started.
  bool Start(const std::string& sim_binary, const std::string& avd_binary,
             const std::vector<std::string>& extra_args = {});
  // Starts |args| (a program's path, then its arguments) the same way:
  // another program whose lines a test waits for, such as avctl's monitor.
  bool Run(std::vector<std::string> args);

  // Sends one command line.
  bool Send(const std::string& command);

  // Closes the simulator's stdin (end of input).
  void CloseInput();

  // Waits until a line equal to |line| appears at index |from| or later and
  // returns its index. When it does not come within |timeout_ms|, when the
  // simulator ends first, or kAfterDaemonEndMs after the daemon ended with
  // no restart asked for, fails the current test, showing the transcript,
  // and returns the line count. After such a failure no wait waits any
  // more, so that a failing test fails in one time-out, not in one per
  // remaining line.
  size_t Expect(const std::string& line, size_t from = 0,
                int64_t timeout_ms = kDefaultTimeoutMs) {
    return Wait(line, true, from, timeout_ms);
  }
  // As Expect, for the first line that starts with |prefix|.
  size_t ExpectPrefix(const std::string& prefix, size_t from = 0,
                      int64_t timeout_ms = kDefaultTimeoutMs) {
    return Wait(prefix, false, from, timeout_ms);
  }
  // The rest of the first line that starts with |prefix| (ExpectPrefix);
  // empty when none comes.
  std::string After(const std::string& prefix);

  // Waits for the simulator to exit; returns its exit code, or nullopt on
  // time-out (it is then still running).
  std::optional<int> WaitForExit(int64_t timeout_ms = kDefaultTimeoutMs);

  // Every line read so far, and all of them as one text for failure output.
  const std::vector<std::string>& lines() const { return lines_; }
  std::string Transcript() const;
  // How many of them, from index |from| on, start with |prefix|.
  size_t Count(const std::string& prefix, size_t from = 0) const;

  pid_t pid() const { return pid_; }

 private:
  // Reads what arrives within |timeout_ms| into lines_; false when nothing
  // did (the output is closed at its end).
  bool ReadSome(int64_t timeout_ms);
  // True when the simulator's latest report of the daemon is its end (or
  // a failed start) and no restart was asked for before it.
  bool DaemonEnded() const;
  // The first line from |from| on equal to |text| (|whole|) or starting
  // with it, as Expect.
  size_t Wait(const std::string& text, bool whole, size_t from,
              int64_t timeout_ms);

  pid_t pid_ = -1;
  int to_sim_ = -1;
  int from_sim_ = -1;
  std::string partial_;
  std::vector<std::string> lines_;
  std::optional<int> exit_code_;
  bool failed_ = false;
};

}  // namespace morvane::ap

#endif  // TESTS_E2E_SIM_PROCESS_H_
