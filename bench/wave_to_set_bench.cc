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

#include <systemd/sd-bus.h>
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "sim/device_inputs.h"
#include "tests/fixtures/sim_world.h"

namespace morvane::ap {
namespace {

constexpr int64_t kGiveUpNs = 5'000'000'000;
constexpr int64_t kWaveGapNs = 200'000'000;

int64_t MonotonicNs() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

// The simulated device with the real daemon, up and configured, and a bare
// client of the controller beside it.
class World {
 public:
  bool Start() {
    if (!world_.Start(AVD_BINARY, SIM_IIO_PRELOAD_LIBRARY)) return false;
    if (sd_bus_new(&client_) < 0 ||
        sd_bus_set_address(client_, world_.bus_address().c_str()) < 0 ||
        sd_bus_set_bus_client(client_, 1) < 0 || sd_bus_start(client_) < 0) {
      fprintf(stderr, "Failed to connect a client\n");
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

  ~World() { sd_bus_flush_close_unref(client_); }

  // Sends a wave and returns how long after the rising record became
  // readable the controller got the Set, in ns; 0 when it never did.
  int64_t Wave() {
    const int sets = world_.sets();
    if (!world_.WriteIio(MakeWaveRecords(MonotonicNs(), kWaveGapNs))) return 0;
    return TimeUntilSet(MonotonicNs(), sets);
  }

  // Sends the same kind of Set as a bare client and returns its delivery
  // time in ns; 0 when it never arrived.
  int64_t BareSet() {
    if (!client_) return 0;
    const std::string record =
        world_.controller()->configuration().SerializeAsString();
    sd_bus_message* call = nullptr;
    sd_bus_message_new_method_call(
        client_, &call, "org.tessaly.ap.Controller",
        "/org/tessaly/ap/Controller/Configuration",
        "org.tessaly.ap.Controller.Configuration", "Set");
    sd_bus_message_append_array(call, 'y', record.data(), record.size());
    const int sets = world_.sets();
    const int64_t sent_ns = MonotonicNs();
    const int r = sd_bus_send(client_, call, nullptr);
    sd_bus_message_unref(call);
    sd_bus_flush(client_);
    return r < 0 ? 0 : TimeUntilSet(sent_ns, sets);
  }

 private:
  // The time from |since_ns| until the controller has had more than |sets|
  // Set calls; 0 after kGiveUpNs. The daemon then follows the published
  // configuration (it asks the controller whether setup is completed): the
  // loop serves that before the next measurement.
  int64_t TimeUntilSet(int64_t since_ns, int sets) {
    int64_t arrived_ns = 0;
    world_.RunUntil(
        [&] {
          if (world_.sets() > sets) arrived_ns = MonotonicNs();
          return arrived_ns != 0;
        },
        kGiveUpNs / 1000);
    world_.RunFor(20'000);
    return arrived_ns == 0 ? 0 : arrived_ns - since_ns;
  }

  SimWorld world_;
  sd_bus* client_ = nullptr;
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
