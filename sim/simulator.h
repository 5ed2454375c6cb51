// The platform simulator (ap-sim): the production avd on a private bus,
// with the daemon's peers and a simulated device around it. A map of sim/:
//
// The world
//   simulator.h         this header: starts the world, applies commands to
//                       it, reports what happens as lines and SimState
//   sim_directory.h     the temporary directory: sysroot, settings, VPD
//                       cache, clips, logs, the daemon's environment
//   daemon_process.h    avd as a child: start, stop, restart, its exit
//   daemon_client.h     the simulator's own calls to the daemon's Manager
//   device_inputs.h     the touch FIFO and the proximity sensor's records
//   device_controls.h   ambient level, VPD cache and sensor attributes
//   sysfs_board.h       the LED and IIO tree for --sysfs_lights
//   iio_preload.c       preloaded into avd: the sensor's event ioctl
//   file_watcher.h      follows the libraries' logs and attribute files
//   library_log.h       a stand-in library's log line as an output line
//   sound_output.h      sounds to the sound card or a capture file
//   (the peers, bus and child processes are peers/, shared with the board)
//
// The session
//   commands.h          the command language that keys and scripts share
//   record.h            every line stamped, events.log, the timeline
//   timeline.h          the session drawn as an SVG picture
//
// The views (ap-sim only, not in sim_core)
//   main.cc             flags, exit statuses, picks the view
//   script_ui.h         script mode: commands in, one line per event out
//   terminal_ui.h       interactive mode: keys, redraws, the terminal
//   view_frame.h        one frame of the terminal view, as text
//   ring_colours.h      each state's colour and name (view and timeline)

#ifndef SIM_SIMULATOR_H_
#define SIM_SIMULATOR_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "peers/child_process.h"
#include "peers/connection_manager_peer.h"
#include "peers/controller_peer.h"
#include "peers/group_monitor_peer.h"
#include "peers/upstart_peer.h"
#include "platform/error.h"
#include "sim/daemon_client.h"
#include "sim/daemon_process.h"
#include "sim/device_controls.h"
#include "sim/file_watcher.h"
#include "sim/sim_directory.h"
#include "sim/sound_output.h"
#include "sim/sysfs_board.h"

namespace morvane::ap {

class EventLoop;

// What the simulated device shows and how its world is set, for the views.
struct SimState {
  int light_state = -1;  // -1 until the daemon sets one.
  int brightness = -1;   // 0..255; -1 until the daemon sets one.
  bool wan_online = false;
  bool group_joined = true;
  bool is_root = true;
  bool connected_to_root = true;
  bool setup_completed = true;
  bool automatic_intensity = false;
  int light_intensity = 30;
  bool bridge_mode = false;
  std::string default_device;  // "MAC for N s"; empty: none.
  int ambient = 128;  // -1: the sensor reading fails.
  bool audio_down = false;
  bool controller_running = true;
  bool avd_running = false;
  bool avd_ready = false;  // The daemon owns its service name.
  int avd_pid = -1;
  std::string bus_address;
  uint32_t last_operation_id = 0;
  std::string last_sound;
  bool vpd_present = true;
  // What the daemon wrote into the sensor's calibration bias, falling and
  // rising thresholds; empty before it calibrates.
  std::string calibration[3];
  // With the sysfs light library: each LED's colour (0xRRGGBB) and the
  // ring's mode, read from the LED attributes; empty otherwise.
  std::vector<uint32_t> ring_colours;
  std::string ring_mode;

  // A non-root access point that lost its root, with the monitor there.
  bool group_failure() const {
    return group_joined && !is_root && !connected_to_root;
  }
};

// The whole simulated device: a private bus, the sysroot, the peers, the
// device inputs and the daemon under test. Reports every injected event and
// every observed outcome as one line (docs/simulator.md lists the forms).
class Simulator {
 public:
  class Observer {
   public:
    virtual ~Observer() = default;
    // One injected event or observed outcome, e.g. "light state 6".
    virtual void OnLine(const std::string& line) = 0;
    // The state changed; a view may redraw.
    virtual void OnStateChanged() = 0;
  };

  struct Options {
    std::string avd_path;
    std::string preload_path;  // Empty: the daemon runs without it.
    bool developer = true;
    bool simulate_verified = false;
    bool setup_completed = true;
    bool wan_online = false;
    SoundOutput sound = SoundOutput::kAuto;
    // Non-empty: the daemon loads the sysfs light-control library from
    // here and drives a simulated board's LED class (see SysfsBoard).
    std::string sysfs_lights_dir;
  };

  // |loop| and |observer| must outlive this object.
  Simulator(EventLoop* loop, Options options, Observer* observer);
  Simulator(const Simulator&) = delete;
  Simulator& operator=(const Simulator&) = delete;
  // Shuts down whatever still runs.
  ~Simulator();

  // Builds the directory, starts the bus, the peers and the daemon. Returns
  // false and adds to |error| if the world cannot be built; the daemon's own
  // failure to start is reported as a line instead.
  bool Start(ErrorPtr* error);

  // Stops the daemon (reporting how it exited), the peers and the bus, and
  // removes the directory. Safe to call more than once.
  void Shutdown();
  bool shut_down() const { return shut_down_; }
  // The daemon ended (or could not start) without being asked to, at some
  // time in the session.
  bool daemon_failed() const { return daemon_ && daemon_->failed(); }

  // What can happen to the simulated device (sim/commands.h has them as
  // text). Each reports "inject ..." and whatever follows.
  void SetWan(bool online);
  // "failure", "ok", "root", "nonroot", "leave" or "join"; false for
  // anything else.
  bool SetGroup(const std::string& what);
  void SetSetupCompleted(bool completed);
  // Changes the controller's stored configuration, which publishes it, and
  // reports "inject config |what|".
  void ChangeConfiguration(
      const std::string& what,
      const std::function<void(DeviceConfiguration*)>& change);
  // "controller", "group" (the group monitor) or "connman" (the
  // connection manager) leaves the bus and comes back; false for another.
  bool RestartPeer(const std::string& which);
  void RestartAvd();
  // Faults of the peers: Upstart stops answering (or answers again); the
  // group monitor, the connection manager and the controller publish
  // values of the wrong D-Bus types.
  void SetUpstartAnswering(bool answering);
  void PublishWrongTypes();
  // Ends the loop, and so the simulator.
  void Quit();

  // Reports one line as its own (echoes, help, errors).
  void Report(const std::string& line);

  const SimState& state() const { return state_; }
  // The device's own inputs; null before Start() and after Shutdown().
  DeviceControls* device() const { return device_.get(); }
  // Null after Shutdown().
  SimDirectory* directory() const { return directory_.get(); }
  // The daemon's Manager methods, called as another daemon would, and a
  // client that floods it; null before Start() and after Shutdown().
  DaemonClient* daemon_client() const { return daemon_client_.get(); }

 private:
  bool WatchFiles(ErrorPtr* error);
  void Changed();
  // Copies what the view shows of the controller's configuration.
  void SyncConfiguration();

  EventLoop* const loop_;
  const Options options_;
  Observer* const observer_;
  SimState state_;
  bool shut_down_ = false;

  std::unique_ptr<SimDirectory> directory_;
  std::unique_ptr<SysfsBoard> sysfs_board_;
  std::unique_ptr<ChildProcess> bus_daemon_;
  std::unique_ptr<DaemonClient> daemon_client_;
  std::unique_ptr<ControllerPeer> controller_;
  std::unique_ptr<GroupMonitorPeer> group_monitor_;
  std::unique_ptr<ConnectionManagerPeer> connection_manager_;
  std::unique_ptr<UpstartPeer> upstart_;
  std::unique_ptr<FileWatcher> watcher_;
  std::unique_ptr<DeviceControls> device_;
  std::unique_ptr<DaemonProcess> daemon_;
};

}  // namespace morvane::ap

#endif  // SIM_SIMULATOR_H_
