// Wave to Set: how long the production daemon takes from a wave's rising
// event record becoming readable on the proximity sensor to the controller
// receiving the configuration it writes back.
//
// The whole path runs for real: avd in its own process with the simulator's
// IIO preload library, a private dbus-daemon, and the simulated controller
// served by this program's loop. The bus's own share is measured beside it
// in the same run: the same Set sent by a bare client of this program,
// from send to arrival. The daemon's share is the difference.
//
// Run pinned to one CPU (the daemon and the bus inherit it):
//   taskset -c 1 build/bench/wave_to_set_bench

#include <signal.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "platform/event_loop.h"
#include "sim/child_process.h"
#include "sim/controller_peer.h"
#include "sim/device_inputs.h"
#include "sim/sim_directory.h"
#include "tests/fixtures/dbus_daemon_fixture.h"

namespace morvane::ap {
namespace {

constexpr int64_t kGiveUpNs = 5'000'000'000;
constexpr int64_t kWaveGapNs = 200'000'000;

int64_t MonotonicNs() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

// The simulated device with the real daemon, up and configured.
class World {
 public:
  bool Start() {
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGCHLD);
    sigprocmask(SIG_BLOCK, &mask, nullptr);
    std::string bus_error;
    ErrorPtr error;
    loop_ = EventLoop::Create(&error);
    directory_ = SimDirectory::Create({}, &error);
    if (!loop_ || !directory_ || !bus_.Start(&bus_error)) {
      fprintf(stderr, "Failed to set up: %s\n", bus_error.c_str());
      return false;
    }
    controller_ = std::make_unique<ControllerPeer>(
        loop_->event(), bus_.address(), [this](const std::string& line) {
          if (line.rfind("config set ", 0) == 0) set_ns_ = MonotonicNs();
        });
    DeviceConfiguration config;
    config.mutable_default_prioritized_device()->set_mac_address(
        "02:00:00:5e:00:01");
    config.mutable_default_prioritized_device()->set_expiration_time(600);
    controller_->SetConfiguration(config);
    if (!controller_->Start(&error) ||
        !iio_.Open(directory_->iio_event_fifo(), &error)) {
      fprintf(stderr, "Failed to set up: %s\n", error->message().c_str());
      return false;
    }
    avd_ = std::make_unique<ChildProcess>(loop_->event());
    if (!avd_->Start({AVD_BINARY},
                     EnvironmentWith(directory_->DaemonEnvironment(
                         bus_.address(), SIM_IIO_PRELOAD_LIBRARY)),
                     -1, -1, nullptr, &error)) {
      fprintf(stderr, "Failed to start avd: %s\n", error->message().c_str());
      return false;
    }
    // Waves until one is answered: the daemon is then calibrated and holds
    // the configuration.
    for (int attempt = 0; attempt < 50; ++attempt) {
      if (Wave() > 0) return true;
    }
    fprintf(stderr, "The daemon never answered a wave\n");
    return false;
  }

  // Sends a wave and returns how long after the rising record became
  // readable the controller got the Set, in ns; 0 when it never did.
  int64_t Wave() {
    set_ns_ = 0;
    const int64_t falling_ns = MonotonicNs();
    if (!iio_.Write(MakeWaveRecords(falling_ns, kWaveGapNs))) return 0;
    const int64_t readable_ns = MonotonicNs();
    const int64_t result = RunUntilSet(readable_ns);
    Settle();
    return result;
  }

  // Sends the same kind of Set as a bare client and returns its delivery
  // time in ns; 0 when it never arrived.
  int64_t BareSet() {
    if (!client_) {
      client_ = bus_.Connect();
      if (!client_ || sd_bus_attach_event(client_, loop_->event(), 0) < 0) {
        return 0;
      }
    }
    const std::string record = controller_->configuration().SerializeAsString();
    sd_bus_message* call = nullptr;
    sd_bus_message_new_method_call(
        client_, &call, "org.tessaly.ap.Controller",
        "/org/tessaly/ap/Controller/Configuration",
        "org.tessaly.ap.Controller.Configuration", "Set");
    sd_bus_message_append_array(call, 'y', record.data(), record.size());
    set_ns_ = 0;
    const int64_t sent_ns = MonotonicNs();
    const int r = sd_bus_call_async(client_, nullptr, call, nullptr, nullptr, 0);
    sd_bus_message_unref(call);
    if (r < 0) return 0;
    const int64_t result = RunUntilSet(sent_ns);
    Settle();
    return result;
  }

  ~World() {
    if (avd_) avd_->Stop(2'000'000);
    sd_bus_flush_close_unref(client_);
    controller_.reset();
  }

 private:
  int64_t RunUntilSet(int64_t since_ns) {
    while (set_ns_ == 0 && MonotonicNs() - since_ns < kGiveUpNs) {
      sd_event_run(loop_->event(), 100'000);
    }
    return set_ns_ == 0 ? 0 : set_ns_ - since_ns;
  }

  // The daemon follows each published configuration (it asks the
  // controller whether setup is completed): let it finish before the next
  // measurement.
  void Settle() {
    const int64_t until = MonotonicNs() + 20'000'000;
    while (MonotonicNs() < until) sd_event_run(loop_->event(), 5'000);
  }

  DbusDaemonFixture bus_;
  std::unique_ptr<EventLoop> loop_;
  std::unique_ptr<SimDirectory> directory_;
  std::unique_ptr<ControllerPeer> controller_;
  FifoWriter iio_;
  std::unique_ptr<ChildProcess> avd_;
  sd_bus* client_ = nullptr;
  int64_t set_ns_ = 0;
};

World* TheWorld() {
  static World* world = [] {
    auto* w = new World;
    if (!w->Start()) exit(1);
    return w;
  }();
  return world;
}

// Times |once| per iteration and reports the median, 99th percentile and
// maximum in microseconds as counters.
void Measure(benchmark::State& state, const std::function<int64_t()>& once) {
  std::vector<int64_t> latencies_ns;
  for (auto _ : state) {
    const int64_t ns = once();
    if (ns == 0) {
      state.SkipWithError("no Set arrived");
      break;
    }
    latencies_ns.push_back(ns);
    state.SetIterationTime(static_cast<double>(ns) * 1e-9);
  }
  if (latencies_ns.empty()) return;
  std::sort(latencies_ns.begin(), latencies_ns.end());
  auto at = [&](double q) {
    return latencies_ns[static_cast<size_t>(q * (latencies_ns.size() - 1))] /
           1000.0;
  };
  state.counters["p50_us"] = at(0.5);
  state.counters["p99_us"] = at(0.99);
  state.counters["max_us"] = at(1.0);
}

void BM_BareSetOverTheBus(benchmark::State& state) {
  Measure(state, [] { return TheWorld()->BareSet(); });
}
BENCHMARK(BM_BareSetOverTheBus)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->Iterations(300);

void BM_WaveToSet(benchmark::State& state) {
  Measure(state, [] { return TheWorld()->Wave(); });
}
BENCHMARK(BM_WaveToSet)
    ->UseManualTime()
    ->Unit(benchmark::kMicrosecond)
    ->Iterations(300);

}  // namespace
}  // namespace morvane::ap

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  delete morvane::ap::TheWorld();
  return 0;
}
