// One of the daemon's peers on the board's system bus, as a service of its
// own: board-peer controller|group-monitor|connection-manager|upstart.
// SIGUSR1 flips what the peer's operator would change (setup done, the WAN
// online, the group's root), so the board's view drives them with
// `systemctl kill -s USR1 board-peer@NAME`; SIGUSR2 flips the controller's
// automatic intensity (the brightness following the ambient light).
#include <signal.h>
#include <systemd/sd-daemon.h>
#include <systemd/sd-event.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>

#include "peers/connection_manager_peer.h"
#include "peers/controller_peer.h"
#include "peers/group_monitor_peer.h"
#include "peers/upstart_peer.h"

namespace morvane::ap {
namespace {

void Report(const std::string& line) {
  std::printf("%s\n", line.c_str());
  std::fflush(stdout);
}

// What a started peer does on SIGUSR1 and SIGUSR2.
using Flip = std::function<void()>;
Flip flip_other = [] {};

Flip StartController(sd_event* event, const std::string& address,
                     ErrorPtr* error) {
  static ControllerPeer* peer = new ControllerPeer(event, address, Report);
  DeviceConfiguration config;
  config.set_light_intensity(100);  // percent: the full 255
  // A wave prioritises this device for ten minutes.
  DeviceConfiguration::PrioritizedDevice* device =
      config.mutable_default_prioritized_device();
  device->set_mac_address("02:00:00:00:00:01");
  device->set_expiration_time(600);
  peer->SetConfiguration(config);
  RuntimeState state;
  state.set_wan_interface("wan0");
  peer->SetRuntimeState(state);
  if (!peer->Start(error)) return nullptr;
  flip_other = [] {
    DeviceConfiguration changed = peer->configuration();
    changed.set_enable_automatic_intensity(
        !changed.enable_automatic_intensity());
    peer->SetConfiguration(changed);
    Report(changed.enable_automatic_intensity() ? "automatic intensity on"
                                                : "automatic intensity off");
  };
  return [] {
    peer->SetSetupCompleted(!peer->setup_completed());
    Report(peer->setup_completed() ? "setup completed" : "setup not completed");
  };
}

Flip StartGroupMonitor(sd_event* event, const std::string& address,
                       ErrorPtr* error) {
  static GroupMonitorPeer* peer = new GroupMonitorPeer(event, address);
  peer->SetIsRoot(true);
  peer->SetConnectedToRoot(true);
  if (!peer->Join(error)) return nullptr;
  return [] {
    peer->SetConnectedToRoot(!peer->connected_to_root());
    Report(peer->connected_to_root() ? "connected to root" : "lost the root");
  };
}

Flip StartConnectionManager(sd_event* event, const std::string& address,
                            ErrorPtr* error) {
  static ConnectionManagerPeer* peer = new ConnectionManagerPeer(event, address);
  // Offline, as a fresh access point: the ring shows the start-up state.
  static bool online = false;
  peer->SetConnectionState("offline");
  if (!peer->Start(error)) return nullptr;
  return [] {
    online = !online;
    peer->SetConnectionState(online ? "online" : "offline");
    Report(online ? "wan online" : "wan offline");
  };
}

Flip StartUpstart(sd_event* event, const std::string& address,
                  ErrorPtr* error) {
  static UpstartPeer* peer = new UpstartPeer(event, address, Report);
  if (!peer->Start(error)) return nullptr;
  return [] {};
}

int OnFlip(sd_event_source*, const signalfd_siginfo*, void* userdata) {
  (*static_cast<Flip*>(userdata))();
  return 0;
}

}  // namespace
}  // namespace morvane::ap

int main(int argc, char** argv) {
  using namespace morvane::ap;
  const std::string which = argc == 2 ? argv[1] : "";
  Flip (*start)(sd_event*, const std::string&, ErrorPtr*) =
      which == "controller"           ? StartController
      : which == "group-monitor"      ? StartGroupMonitor
      : which == "connection-manager" ? StartConnectionManager
      : which == "upstart"            ? StartUpstart
                                      : nullptr;
  if (!start) {
    std::fprintf(stderr,
                 "usage: board-peer controller|group-monitor|"
                 "connection-manager|upstart\n");
    return 2;
  }
  const char* bus = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
  const std::string address =
      bus ? bus : "unix:path=/run/dbus/system_bus_socket";

  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGUSR1);
  sigaddset(&signals, SIGUSR2);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  sd_event* event = nullptr;
  sd_event_default(&event);
  ErrorPtr error;
  static Flip flip = start(event, address, &error);
  if (!flip) {
    std::fprintf(stderr, "board-peer %s: %s\n", which.c_str(),
                 error ? error->message().c_str() : "failed to start");
    return 1;
  }
  sd_event_add_signal(event, nullptr, SIGTERM, nullptr, nullptr);
  sd_event_add_signal(event, nullptr, SIGUSR1, OnFlip, &flip);
  sd_event_add_signal(event, nullptr, SIGUSR2, OnFlip, &flip_other);
  sd_notify(0, "READY=1");
  return sd_event_loop(event);
}
