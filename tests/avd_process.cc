#include "tests/avd_process.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace morvane::ap {
namespace {

namespace fs = std::filesystem;

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

}  // namespace

bool WaitUntil(const std::function<bool()>& condition,
               std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

AvdProcess::AvdProcess(const std::string& bus_address)
    : bus_address_(bus_address) {
  char tmpl[] = "/tmp/avd-test-XXXXXX";
  dir_ = mkdtemp(tmpl);
  fs::create_directories(dir_ + "/bin");
  WriteSysrootFile("/usr/share/sounds/ap/network_creation.raw",
                   std::string(4800 * 4, '\x01'));
  SetDeveloperCommand(0);
}

AvdProcess::~AvdProcess() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  std::error_code ignored;
  fs::remove_all(dir_, ignored);
}

std::string AvdProcess::SysrootPath(const std::string& absolute_path) const {
  return dir_ + "/root" + absolute_path;
}

void AvdProcess::WriteSysrootFile(const std::string& absolute_path,
                                  const std::string& contents) const {
  const std::string path = SysrootPath(absolute_path);
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << contents;
}

void AvdProcess::RemoveSysrootFile(const std::string& absolute_path) const {
  fs::remove(SysrootPath(absolute_path));
}

void AvdProcess::SetDeveloperCommand(std::optional<int> status) const {
  const std::string path = dir_ + "/bin/is_developer_end_user";
  fs::remove(path);
  if (!status) return;
  std::ofstream(path) << "#!/bin/sh\nexit " << *status << "\n";
  chmod(path.c_str(), 0755);
}

void AvdProcess::Start() {
  const std::string err = dir_ + "/stderr";
  pid_ = fork();
  if (pid_ == 0) {
    setenv("DBUS_SYSTEM_BUS_ADDRESS", bus_address_.c_str(), 1);
    setenv("AVD_SYSROOT", (dir_ + "/root").c_str(), 1);
    setenv("LIGHTCONTROL_LOG", (dir_ + "/lightcontrol.log").c_str(), 1);
    setenv("PAVO_LOG", (dir_ + "/pavo.log").c_str(), 1);
    setenv("PAVO_CAPTURE", (dir_ + "/pavo.pcm").c_str(), 1);
    setenv("METRICS_LOG", (dir_ + "/metrics.log").c_str(), 1);
    unsetenv("LIGHTCONTROL_PROXIMITY_DEVICE");
    unsetenv("LIGHTCONTROL_AMBIENT");
    // Only the sandbox's bin: the host may have its own commands.
    const std::string path = dir_ + "/bin:/usr/bin:/bin";
    setenv("PATH", path.c_str(), 1);
    freopen(err.c_str(), "w", stderr);
    execl(AVD_BINARY, AVD_BINARY, static_cast<char*>(nullptr));
    _exit(127);
  }
}

std::optional<int> AvdProcess::WaitForExit(std::chrono::milliseconds timeout) {
  int status = 0;
  const bool exited = WaitUntil(
      [&] { return waitpid(pid_, &status, WNOHANG) == pid_; }, timeout);
  if (!exited) return std::nullopt;
  pid_ = -1;
  return status;
}

void AvdProcess::Signal(int signo) const {
  if (pid_ > 0) kill(pid_, signo);
}

std::vector<std::string> AvdProcess::LightCalls() const {
  std::vector<std::string> lines;
  std::istringstream in(ReadAll(dir_ + "/lightcontrol.log"));
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

std::string AvdProcess::Stderr() const { return ReadAll(dir_ + "/stderr"); }

bool AvdProcess::WaitForLightCalls(size_t count,
                                   std::chrono::milliseconds timeout) const {
  return WaitUntil([&] { return LightCalls().size() >= count; }, timeout);
}

}  // namespace morvane::ap
