// Press to click: how long the daemon's own code takes from a press record
// becoming readable on the touch device to the feedback clip being handed to
// the audio library, on the real sd-event loop with the daemon's logging.
//
// Run pinned to one CPU, with the daemon's log lines out of the way:
//   taskset -c 1 build/bench/press_to_click_bench 2>/dev/null
//
// This program is its own audio library: the pavo_* functions below only
// note when the clip arrived, so the figure holds no audio work.

#include <fcntl.h>
#include <linux/input.h>
#include <stdlib.h>
#include <systemd/sd-event.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "tests/fixtures/fake_input_device.h"
#include "av/input_manager.h"
#include "platform/event_loop.h"
#include "platform/logging.h"

namespace {

int64_t MonotonicNs() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

int64_t g_played_ns = 0;  // When the last clip reached the audio library.

}  // namespace

extern "C" {

struct pavo_client {
  int unused;  // a C struct is never empty
};

int pavo_helper_create_connect(pavo_client** client) {
  static pavo_client the_client;
  *client = &the_client;
  return 0;
}

int pavo_client_get_first_dev_type_idx(pavo_client*, int, int) { return 0; }

int pavo_helper_play_buffer(pavo_client*, const void*, size_t, int, int, int,
                            int) {
  g_played_ns = MonotonicNs();
  return 0;
}

void pavo_client_destroy(pavo_client*) {}

}  // extern "C"

namespace morvane::ap {
namespace {

// The real loop, with a wall clock that moves one feedback interval ahead
// per press, so that every press may click without waiting 200 ms.
class PressPacedLoop : public TaskLoop {
 public:
  explicit PressPacedLoop(EventLoop* loop) : loop_(loop) {}

  TaskId PostTask(Task task) override { return loop_->PostTask(task); }
  TaskId PostDelayedTask(Task task, int64_t delay_us) override {
    return loop_->PostDelayedTask(task, delay_us);
  }
  TaskId WatchReadable(int fd, Task task) override {
    return loop_->WatchReadable(fd, task);
  }
  bool CancelTask(TaskId id) override { return loop_->CancelTask(id); }
  int64_t Now() const override { return loop_->Now(); }
  int64_t WallNow() const override { return loop_->WallNow() + offset_us_; }

  void NextPress() { offset_us_ += InputManager::kMinFeedbackInterval; }

 private:
  EventLoop* const loop_;
  int64_t offset_us_ = 0;
};

// Times each iteration from |press| becoming readable on |device| to the
// next g_played_ns, running |event| meanwhile, and reports the median,
// 99th percentile and maximum in microseconds as counters. |before_press|
// runs before each write, untimed.
void MeasurePresses(benchmark::State& state, FakeInputDevice* device,
                    const std::string& press, sd_event* event,
                    const std::function<void()>& before_press) {
  std::vector<int64_t> latencies_ns;
  for (auto _ : state) {
    before_press();
    g_played_ns = 0;
    device->Write(press);
    const int64_t readable_ns = MonotonicNs();
    while (g_played_ns == 0) sd_event_run(event, UINT64_MAX);
    latencies_ns.push_back(g_played_ns - readable_ns);
    state.SetIterationTime(static_cast<double>(latencies_ns.back()) * 1e-9);
  }
  if (latencies_ns.empty()) return;
  std::sort(latencies_ns.begin(), latencies_ns.end());
  auto at = [&](double q) {
    const size_t last = latencies_ns.size() - 1;
    return latencies_ns[static_cast<size_t>(q * last)] / 1000.0;
  };
  state.counters["p50_us"] = at(0.5);
  state.counters["p99_us"] = at(0.99);
  state.counters["max_us"] = at(1.0);
}

// The floor under the daemon's figure, for a ratio from the same run: a bare
// sd-event watch that reads the record and notes the time, nothing else.
void BM_BareReadOnTheLoop(benchmark::State& state) {
  FakeInputDevice device;
  const int reader =
      open(device.path().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  sd_event* event = nullptr;
  sd_event_source* source = nullptr;
  sd_event_new(&event);
  sd_event_add_io(
      event, &source, reader, EPOLLIN,
      [](sd_event_source*, int fd, uint32_t, void*) {
        input_event record;
        if (read(fd, &record, sizeof(record)) == sizeof(record)) {
          g_played_ns = MonotonicNs();
        }
        return 0;
      },
      nullptr);
  const std::string press = MakeInputRecord(0, EV_KEY, KEY_WPS_BUTTON, 1);

  MeasurePresses(state, &device, press, event, [] {});

  sd_event_source_unref(source);
  sd_event_unref(event);
  close(reader);
}
BENCHMARK(BM_BareReadOnTheLoop)->UseManualTime()->Unit(benchmark::kMicrosecond);

void BM_PressToClick(benchmark::State& state) {
  FakeInputDevice device;
  const std::string clip(1920, '\0');  // 20 ms of silence at 48 kHz.
  setenv("AVD_SYSROOT", device.MakeSysroot(clip).c_str(), 1);

  std::unique_ptr<EventLoop> event_loop = EventLoop::Create(nullptr);
  PressPacedLoop loop(event_loop.get());
  auto manager = std::make_unique<InputManager>(&loop);
  const std::string press = MakeInputRecord(0, EV_KEY, KEY_WPS_BUTTON, 1) +
                            MakeInputRecord(0, EV_SYN, SYN_REPORT, 0);

  MeasurePresses(state, &device, press, event_loop->event(),
                 [&loop] { loop.NextPress(); });

  manager.reset();
  unsetenv("AVD_SYSROOT");
}
BENCHMARK(BM_PressToClick)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace morvane::ap

int main(int argc, char** argv) {
  // As the daemon logs: syslog and standard error, with the header.
  morvane::ap::InitLogging(argv[0], morvane::ap::kLogToSyslog |
                                        morvane::ap::kLogToStderr |
                                        morvane::ap::kLogHeader);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
