#ifndef TESTS_AVD_PROCESS_H_
#define TESTS_AVD_PROCESS_H_

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace morvane::ap {

// Runs the production avd binary for a test, in a sandbox directory that
// holds its sysroot, the stand-in libraries' logs and its stderr. The
// process is killed by pid and reaped at destruction if still running.
class AvdProcess {
 public:
  // |bus_address| becomes DBUS_SYSTEM_BUS_ADDRESS. The sandbox starts with a
  // network-creation clip and an "is_developer_end_user" that exits 0.
  explicit AvdProcess(const std::string& bus_address);
  AvdProcess(const AvdProcess&) = delete;
  AvdProcess& operator=(const AvdProcess&) = delete;
  ~AvdProcess();

  // Sandbox set-up, before Start().
  std::string SysrootPath(const std::string& absolute_path) const;
  void WriteSysrootFile(const std::string& absolute_path,
                        const std::string& contents) const;
  void RemoveSysrootFile(const std::string& absolute_path) const;
  // Replaces the "is_developer_end_user" in the daemon's PATH by a script
  // that exits with |status|, or removes it when |status| is empty.
  void SetDeveloperCommand(std::optional<int> status) const;

  void Start();

  // Waits until the daemon exits; its wait status, or empty on time-out.
  std::optional<int> WaitForExit(std::chrono::milliseconds timeout);
  void Signal(int signo) const;

  // Lines of LIGHTCONTROL_LOG and of the daemon's stderr so far.
  std::vector<std::string> LightCalls() const;
  std::string Stderr() const;

  // Waits until LIGHTCONTROL_LOG has at least |count| lines.
  bool WaitForLightCalls(size_t count, std::chrono::milliseconds timeout) const;

  pid_t pid() const { return pid_; }

 private:
  std::string dir_;
  std::string bus_address_;
  pid_t pid_ = -1;
};

// Polls |condition| every 10 ms until it holds or |timeout| passes.
bool WaitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds timeout);

}  // namespace morvane::ap

#endif  // TESTS_AVD_PROCESS_H_
