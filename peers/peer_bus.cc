#include "peers/peer_bus.h"

#include <fcntl.h>
#include <poll.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

#include "peers/system_error.h"

namespace morvane::ap {
namespace {

constexpr char kDomain[] = "sim";
constexpr int64_t kBusStartTimeoutMs = 10'000;

int64_t MonotonicMs() {
  return std::chrono::steady_clock::now().time_since_epoch() /
         std::chrono::milliseconds(1);
}

}  // namespace

const char kOpenBusPolicy[] = R"(  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_type="method_return"/>
    <allow send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="signal"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
  </policy>
)";

std::string PrivateBusConfig(const std::string& socket_path,
                             const std::string& policies) {
  return R"(<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=)" + socket_path + R"(</listen>
  <auth>EXTERNAL</auth>
)" + policies + "</busconfig>\n";
}

std::unique_ptr<ChildProcess> StartBusDaemon(
    sd_event* event, const std::string& config,
    ChildProcess::ExitCallback on_exit, std::string* address, ErrorPtr* error) {
  int pipe_fds[2];
  if (pipe2(pipe_fds, O_CLOEXEC) != 0) {
    SystemCallFailed(error, "make a pipe");
    return nullptr;
  }
  auto bus_daemon = std::make_unique<ChildProcess>(event);
  const bool started = bus_daemon->Start(
      {"dbus-daemon", "--config-file=" + config, "--nofork", "--print-address"},
      EnvironmentWith({}), pipe_fds[1], -1, std::move(on_exit), error);
  close(pipe_fds[1]);
  // It prints its address once it listens.
  std::string line;
  pollfd pfd{pipe_fds[0], POLLIN, 0};
  const int64_t deadline = MonotonicMs() + kBusStartTimeoutMs;
  char buffer[256];
  for (ssize_t n = 1; started && n > 0 && line.find('\n') == std::string::npos;) {
    const int64_t left_ms = deadline - MonotonicMs();
    if (left_ms <= 0 || poll(&pfd, 1, static_cast<int>(left_ms)) <= 0) break;
    n = read(pipe_fds[0], buffer, sizeof(buffer));
    if (n > 0) line.append(buffer, static_cast<size_t>(n));
  }
  close(pipe_fds[0]);
  if (!started) return nullptr;
  *address = line.substr(0, line.find('\n'));
  if (address->empty()) {
    Error::AddTo(error, FROM_HERE, kDomain, "bus",
                 "Failed to start dbus-daemon: it printed no address");
    return nullptr;
  }
  return bus_daemon;
}

sd_bus* ConnectToBus(const std::string& address, sd_event* event,
                     ErrorPtr* error) {
  sd_bus* bus = nullptr;
  int r = sd_bus_new(&bus);
  if (r >= 0) r = sd_bus_set_address(bus, address.c_str());
  if (r >= 0) r = sd_bus_set_bus_client(bus, 1);
  if (r >= 0) r = sd_bus_start(bus);
  if (r >= 0) r = sd_bus_attach_event(bus, event, SD_EVENT_PRIORITY_NORMAL);
  if (r < 0) {
    Error::AddToPrintf(error, FROM_HERE, kDomain, "dbus",
                       "Failed to connect to %s: %s", address.c_str(),
                       strerror(-r));
    sd_bus_flush_close_unref(bus);
    return nullptr;
  }
  return bus;
}

sd_bus* StartPeer(const std::string& address, sd_event* event,
                  const PeerExport& peer, ErrorPtr* error) {
  sd_bus* bus = ConnectToBus(address, event, error);
  if (!bus) return nullptr;
  int r = 0;
  if (peer.object_manager_path) {
    r = sd_bus_add_object_manager(bus, nullptr, peer.object_manager_path);
  }
  if (r >= 0) {
    r = sd_bus_add_object_vtable(bus, nullptr, peer.path, peer.interface,
                                 peer.vtable, peer.userdata);
  }
  if (r >= 0) r = sd_bus_request_name(bus, peer.service, 0);
  if (r < 0) {
    Error::AddToPrintf(error, FROM_HERE, kDomain, "dbus",
                       "Failed to start %s: %s", peer.service, strerror(-r));
    sd_bus_flush_close_unref(bus);
    return nullptr;
  }
  return bus;
}

}  // namespace morvane::ap
