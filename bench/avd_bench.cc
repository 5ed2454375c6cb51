// The benchmark table: the production daemon on a private bus, measured
// beside a bare sd-bus service with the same libraries (bare_service) and
// a bare Ping to the daemon itself, in one run, so the ratios hold on a
// shared machine. It also runs the press-to-click and wave-to-Set
// benchmarks and prints everything as one Markdown table.
//
// Run it pinned to one CPU; every process it starts inherits that:
//   taskset -c 1 build/bench/avd_bench

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "peers/child_process.h"
#include "sim/sim_directory.h"
#include "tests/fixtures/dbus_daemon_fixture.h"

extern char** environ;

namespace morvane::ap {
namespace {

constexpr char kAvdService[] = "org.tessaly.ap.AudioVisual";
constexpr char kBareService[] = "org.tessaly.Bench.Bare";
constexpr char kPath[] = "/org/tessaly/ap/AudioVisual/Manager";
constexpr char kInterface[] = "org.tessaly.ap.AudioVisual.Manager";
constexpr int kRoundTrips = 3000;
constexpr int kPipelined = 20'000;
constexpr int kWindow = 64;  // Calls in flight: under the bus's reply limit.
constexpr int kLongRun = 100'000;
constexpr int kStarts = 15;
constexpr int kIdleSeconds = 30;

int64_t NowNs() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

double Percentile(std::vector<int64_t> ns, double q) {
  std::sort(ns.begin(), ns.end());
  return ns[static_cast<size_t>(q * (ns.size() - 1))] / 1000.0;
}

std::string Format(const char* format, double a, double b = 0) {
  char text[128];
  snprintf(text, sizeof(text), format, a, b);
  return text;
}

// A field of /proc/<pid>/status, as a number ("RssAnon" in kB).
long Status(pid_t pid, const std::string& field) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(in, line);) {
    if (line.rfind(field + ":", 0) == 0) return atol(line.c_str() + field.size() + 1);
  }
  return -1;
}

pid_t Spawn(const std::vector<std::string>& argv,
            const std::vector<std::string>& env) {
  std::vector<char*> c_argv;
  for (const std::string& a : argv) c_argv.push_back(const_cast<char*>(a.c_str()));
  c_argv.push_back(nullptr);
  std::vector<char*> c_env;
  for (const std::string& e : env) c_env.push_back(const_cast<char*>(e.c_str()));
  c_env.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  pid_t pid = -1;
  if (posix_spawn(&pid, c_argv[0], &actions, nullptr, c_argv.data(),
                  c_env.data()) != 0) {
    pid = -1;
  }
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

void Stop(pid_t pid) {
  if (pid <= 0) return;
  kill(pid, SIGTERM);
  waitpid(pid, nullptr, 0);
}

class Bench {
 public:
  bool SetUp() {
    std::string error;
    ErrorPtr dir_error;
    directory_ = SimDirectory::Create({}, &dir_error);
    if (!directory_ || !bus_.Start(&error)) {
      fprintf(stderr, "Failed to set up: %s\n", error.c_str());
      return false;
    }
    client_ = bus_.Connect();
    // The daemon without the proximity sensor: nothing here feeds it.
    for (const std::string& e :
         EnvironmentWith(directory_->DaemonEnvironment(bus_.address(), ""))) {
      if (e.rfind("LIGHTCONTROL_PROXIMITY_DEVICE=", 0) != 0) avd_env_.push_back(e);
    }
    bare_env_ = EnvironmentWith({"DBUS_SYSTEM_BUS_ADDRESS=" + bus_.address()});
    return client_ != nullptr;
  }

  ~Bench() { sd_bus_flush_close_unref(client_); }

  // Starts |argv| and returns the time until |service| has an owner, in
  // ms, or -1; the process is left running in |*pid|. The name's arrival
  // is waited for, not polled: polling would take the CPU from the start.
  double StartToName(const std::vector<std::string>& argv,
                     const std::vector<std::string>& env, const char* service,
                     pid_t* pid) {
    bool owned = false;
    sd_bus_slot* match = nullptr;
    const std::string rule =
        "type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',"
        "arg0='" + std::string(service) + "'";
    sd_bus_add_match(
        client_, &match, rule.c_str(),
        [](sd_bus_message* m, void* userdata, sd_bus_error*) {
          const char* name = nullptr;
          const char* old_owner = nullptr;
          const char* new_owner = nullptr;
          if (sd_bus_message_read(m, "sss", &name, &old_owner, &new_owner) >= 0 &&
              *new_owner) {
            *static_cast<bool*>(userdata) = true;
          }
          return 0;
        },
        &owned);
    const int64_t start = NowNs();
    *pid = Spawn(argv, env);
    while (!owned && NowNs() - start < 5'000'000'000) {
      if (sd_bus_process(client_, nullptr) == 0) sd_bus_wait(client_, 100'000);
    }
    const int64_t took = NowNs() - start;
    sd_bus_slot_unref(match);
    return owned ? took / 1e6 : -1;
  }

  // The median start time of |kStarts| runs of |argv|.
  double MedianStart(const std::vector<std::string>& argv,
                     const std::vector<std::string>& env, const char* service) {
    std::vector<int64_t> us;
    for (int i = 0; i < kStarts; ++i) {
      pid_t pid = -1;
      const double ms = StartToName(argv, env, service, &pid);
      Stop(pid);
      if (ms < 0) return -1;
      us.push_back(static_cast<int64_t>(ms * 1e6));
    }
    return Percentile(us, 0.5) / 1000.0;
  }

  // One blocking call of |member| on |service|, in ns; -1 on failure.
  int64_t Call(const char* service, const char* interface, const char* member,
               const char* types, ...) {
    sd_bus_message* call = nullptr;
    sd_bus_message_new_method_call(client_, &call, service, kPath, interface,
                                   member);
    va_list args;
    va_start(args, types);
    if (types) sd_bus_message_appendv(call, types, args);
    va_end(args);
    const int64_t start = NowNs();
    const int r = sd_bus_call(client_, call, 0, nullptr, nullptr);
    const int64_t took = NowNs() - start;
    sd_bus_message_unref(call);
    return r < 0 ? -1 : took;
  }

  // Round trips of Ping, SetLedState and SetOperationInProgress on
  // |service|. Ping and SetLedState are interleaved so that they share the
  // machine's moods; SetOperationInProgress logs a line per call, whose
  // system calls slow the calls right after it too, so it runs apart.
  std::vector<std::vector<int64_t>> RoundTrips(const char* service) {
    std::vector<std::vector<int64_t>> ns(3);
    for (int i = 0; i < kRoundTrips; ++i) {
      ns[0].push_back(Call(service, "org.freedesktop.DBus.Peer", "Ping", nullptr));
      ns[1].push_back(Call(service, kInterface, "SetLedState", "ssu", "vox",
                           "in_progress", 30u));
    }
    for (int i = 0; i < kRoundTrips; ++i) {
      ns[2].push_back(
          Call(service, kInterface, "SetOperationInProgress", "u", 0u));
    }
    return ns;
  }

  // SetLedState calls per second with kWindow in flight; -1 on failure.
  double Pipelined(const char* service, int calls) {
    int sent = 0;
    int answered = 0;
    int failed = 0;
    auto on_reply = [](sd_bus_message* m, void* userdata, sd_bus_error*) {
      auto* counts = static_cast<int*>(userdata);
      ++counts[0];
      if (sd_bus_message_is_method_error(m, nullptr)) ++counts[1];
      return 0;
    };
    int counts[2] = {0, 0};
    const int64_t start = NowNs();
    while (counts[0] < calls) {
      while (sent < calls && sent - counts[0] < kWindow) {
        if (sd_bus_call_method_async(client_, nullptr, service, kPath,
                                     kInterface, "SetLedState", on_reply,
                                     counts, "ssu", "vox", "in_progress",
                                     30u) < 0) {
          return -1;
        }
        ++sent;
      }
      if (sd_bus_process(client_, nullptr) == 0) sd_bus_wait(client_, 1'000'000);
    }
    answered = counts[0];
    failed = counts[1];
    if (failed > 0) return -1;
    return answered / ((NowNs() - start) / 1e9);
  }

  const std::vector<std::string>& avd_env() const { return avd_env_; }
  const std::vector<std::string>& bare_env() const { return bare_env_; }

 private:
  DbusDaemonFixture bus_;
  std::unique_ptr<SimDirectory> directory_;
  sd_bus* client_ = nullptr;
  std::vector<std::string> avd_env_;
  std::vector<std::string> bare_env_;
};

// The value after "\"|key|\": " in the JSON of a benchmark named |name|.
double JsonCounter(const std::string& json, const std::string& name,
                   const std::string& key) {
  const size_t at = json.find("\"name\": \"" + name);
  if (at == std::string::npos) return -1;
  const size_t value = json.find("\"" + key + "\": ", at);
  return value == std::string::npos ? -1
                                    : atof(json.c_str() + value + key.size() + 4);
}

std::string RunForJson(const std::string& program) {
  std::string json;
  FILE* out = popen((program + " --benchmark_format=json 2>/dev/null").c_str(), "r");
  if (!out) return json;
  char buffer[4096];
  while (size_t n = fread(buffer, 1, sizeof(buffer), out)) json.append(buffer, n);
  pclose(out);
  return json;
}

long StrippedSize(const std::string& binary) {
  const std::string copy = "/tmp/avd_bench_stripped." + std::to_string(getpid());
  if (std::system(("strip -o " + copy + " " + binary).c_str()) != 0) return -1;
  struct stat st {};
  const long size = stat(copy.c_str(), &st) == 0 ? st.st_size : -1;
  unlink(copy.c_str());
  return size;
}

int Main() {
  Bench bench;
  if (!bench.SetUp()) return 1;
  std::vector<std::string> rows;
  auto row = [&](const std::string& what, const std::string& value,
                 const std::string& target) {
    rows.push_back("| " + what + " | " + value + " | " + target + " |");
  };

  const double avd_start =
      bench.MedianStart({AVD_BINARY}, bench.avd_env(), kAvdService);
  const double bare_start = bench.MedianStart(
      {BARE_SERVICE_BINARY, kBareService}, bench.bare_env(), kBareService);
  row("start to service name on the bus (median of 15)",
      Format("%.1f ms (bare service %.1f ms)", avd_start, bare_start),
      "< 20 ms");

  pid_t avd = -1;
  pid_t bare = -1;
  bench.StartToName({AVD_BINARY}, bench.avd_env(), kAvdService, &avd);
  bench.StartToName({BARE_SERVICE_BINARY, kBareService}, bench.bare_env(),
                    kBareService, &bare);
  sleep(1);
  const long idle_rss = Status(avd, "RssAnon");
  const long switches_before = Status(avd, "voluntary_ctxt_switches") +
                               Status(avd, "nonvoluntary_ctxt_switches");
  sleep(kIdleSeconds);
  const long wakeups = Status(avd, "voluntary_ctxt_switches") +
                       Status(avd, "nonvoluntary_ctxt_switches") -
                       switches_before;
  row("wake-ups in 30 s idle", std::to_string(wakeups), "0");

  const auto avd_trips = bench.RoundTrips(kAvdService);
  const auto bare_trips = bench.RoundTrips(kBareService);
  const double ping = Percentile(avd_trips[0], 0.5);
  for (int m = 1; m <= 2; ++m) {
    row(std::string(m == 1 ? "SetLedState" : "SetOperationInProgress") +
            " round trip p50 / p99",
        Format("%.1f / %.1f us", Percentile(avd_trips[m], 0.5),
               Percentile(avd_trips[m], 0.99)) +
            Format(" (%.2fx Ping's p50 %.1f us)",
                   Percentile(avd_trips[m], 0.5) / ping, ping),
        m == 1 ? "<= 1.10x Ping" : "");
  }
  // The floor: the same call answered by a service that does nothing.
  row("SetLedState round trip p50 vs the bare service's",
      Format("%.2fx", Percentile(avd_trips[1], 0.5) /
                          Percentile(bare_trips[1], 0.5)),
      "<= 1.03x");
  row("SetOperationInProgress (logs a line) round trip p50 vs the bare "
      "service's",
      Format("%.2fx", Percentile(avd_trips[2], 0.5) /
                          Percentile(bare_trips[2], 0.5)),
      "<= 1.10x");
  row("bare service: SetLedState round trip p50 vs its Ping",
      Format("%.1f us (%.2fx)", Percentile(bare_trips[1], 0.5),
             Percentile(bare_trips[1], 0.5) / Percentile(bare_trips[0], 0.5)),
      "about 1.05x");

  const double avd_rate = bench.Pipelined(kAvdService, kPipelined);
  const double bare_rate = bench.Pipelined(kBareService, kPipelined);
  row("pipelined SetLedState calls per second",
      Format("%.0f (%.2fx the bare service's ", avd_rate, avd_rate / bare_rate) +
          Format("%.0f)", bare_rate),
      ">= 0.9x bare");

  bench.Pipelined(kAvdService, kLongRun);
  const long busy_rss = Status(avd, "RssAnon");
  row("private memory (RssAnon) idle / after 100,000 calls",
      std::to_string(idle_rss) + " / " + std::to_string(busy_rss) + " KiB",
      "< 2048 KiB, no growth");
  Stop(avd);
  Stop(bare);

  row("stripped avd (this machine)",
      Format("%.0f KiB", StrippedSize(AVD_BINARY) / 1024.0), "");

  const std::string log_line = RunForJson(LOG_LINE_BENCH_BINARY);
  row("one log line (syslog and standard error, no syslog daemon)",
      Format("%.2f us", JsonCounter(log_line, "BM_LogLine", "real_time") / 1000),
      "<= 5 us");

  const std::string press = RunForJson(PRESS_BENCH_BINARY);
  row("press to click p50 / p99 (daemon's share)",
      Format("%.1f / %.1f us", JsonCounter(press, "BM_PressToClick", "p50_us"),
             JsonCounter(press, "BM_PressToClick", "p99_us")),
      "< 1 ms");
  const std::string wave = RunForJson(WAVE_BENCH_BINARY);
  const double wave_p50 = JsonCounter(wave, "BM_WaveToSet", "p50_us");
  const double bus_p50 = JsonCounter(wave, "BM_BareSetOverTheBus", "p50_us");
  row("wave to Set p50 / p99 (whole path)",
      Format("%.1f / %.1f us", wave_p50, JsonCounter(wave, "BM_WaveToSet", "p99_us")),
      "");
  row("wave to Set, daemon's share p50 (minus a bare Set over the bus)",
      Format("%.1f us (bus %.1f us)", wave_p50 - bus_p50, bus_p50), "< 1 ms");

  printf("| Figure | Measured | Target |\n|---|---|---|\n");
  for (const std::string& r : rows) printf("%s\n", r.c_str());
  return 0;
}

}  // namespace
}  // namespace morvane::ap

int main() { return morvane::ap::Main(); }
