// The soak: the production daemon, built with AddressSanitizer, takes
// 100,000 Manager calls (all four methods) while 10,000 touch and sensor
// records arrive, and must come out with no sanitizer report, no leak, and
// private memory flat after the first thousand calls.

#include <stdlib.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>
#include <time.h>

#include <string>

#include <gtest/gtest.h>

#include "sim/device_inputs.h"
#include "peers/peer_bus.h"
#include "tests/fixtures/sim_world.h"
#include "tests/fixtures/temp_dir.h"

namespace morvane::ap {
namespace {

constexpr char kService[] = "org.tessaly.ap.AudioVisual";
constexpr char kPath[] = "/org/tessaly/ap/AudioVisual/Manager";
constexpr char kInterface[] = "org.tessaly.ap.AudioVisual.Manager";
constexpr const char* kOperationMethods[] = {
    "SetOperationInProgress", "SetOperationSucceeded", "SetOperationFailed"};
constexpr int kCalls = 100'000;
constexpr int kWarmUpCalls = 1'000;
constexpr int kWindow = 64;  // Calls in flight: under the bus's reply limit.
// 2,500 waves (two records each) and 1,250 presses (four records each).
constexpr int kWaves = 2'500;
constexpr int kPresses = 1'250;
constexpr uint16_t kButton = 0x211;
// Growth allowed after the warm-up: allocator pages, not a leak.
constexpr long kFlatKiB = 512;
constexpr int64_t kGiveUpUs = 600'000'000;

int64_t NowNs(clockid_t clock) {
  timespec ts{};
  clock_gettime(clock, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1'000'000'000 + ts.tv_nsec;
}

TEST(SoakTest, DaemonStaysCleanAndFlatUnderLoad) {
  // Freed memory is reused at once, so that what stays allocated shows;
  // every report ends the daemon with a failure.
  setenv("ASAN_OPTIONS",
         "detect_leaks=1:quarantine_size_mb=0:halt_on_error=1", 1);
  SimWorld world;
  ASSERT_TRUE(world.Start(AVD_BINARY, SIM_IIO_PRELOAD_LIBRARY));
  sd_bus* client = ConnectToBus(world.bus_address(), world.loop()->event(), nullptr);
  ASSERT_TRUE(client);
  ASSERT_TRUE(world.RunUntil(
      [&] { return sd_bus_get_name_creds(client, kService, 0, nullptr) >= 0; },
      30'000'000))
      << "the daemon never took its name";

  struct Counts {
    int answered = 0;
    int failed = 0;
  } counts;
  auto on_reply = [](sd_bus_message* m, void* userdata, sd_bus_error*) {
    auto* c = static_cast<Counts*>(userdata);
    ++c->answered;
    if (sd_bus_message_is_method_error(m, nullptr)) ++c->failed;
    return 0;
  };
  auto call = [&](const char* method, const char* types, auto... args) {
    return sd_bus_call_method_async(client, nullptr, kService, kPath,
                                    kInterface, method, on_reply, &counts,
                                    types, args...);
  };
  int sent = 0;
  int waves = 0;
  int presses = 0;
  long warm_rss = -1;
  const int64_t start = NowNs(CLOCK_MONOTONIC);
  while (counts.answered < kCalls) {
    while (sent < kCalls && sent - counts.answered < kWindow) {
      // The three operation methods in turn, then a timed LED state.
      const int kind = sent % 4;
      const int r =
          kind < 3 ? call(kOperationMethods[kind], "u", kind == 0 ? 0u : 1u)
                   : call("SetLedState", "ssu", "setup_activity", "on", 5u);
      ASSERT_GE(r, 0);
      ++sent;
      // The records go in among the calls.
      if (sent % 40 == 0 && waves < kWaves &&
          world.WriteIio(MakeWaveRecords(NowNs(CLOCK_MONOTONIC), 100'000'000))) {
        ++waves;
      }
      if (sent % 80 == 0 && presses < kPresses &&
          world.WriteTouch(
              MakeButtonPressRecords(kButton, NowNs(CLOCK_REALTIME) / 1000))) {
        ++presses;
      }
    }
    const int before = counts.answered;
    ASSERT_TRUE(world.RunUntil([&] { return counts.answered > before; },
                               30'000'000))
        << "the daemon stopped answering after " << before << " calls";
    if (warm_rss < 0 && counts.answered >= kWarmUpCalls) {
      warm_rss = ProcessStatus(world.avd_pid(), "RssAnon");
    }
    ASSERT_LT(NowNs(CLOCK_MONOTONIC) - start, kGiveUpUs * 1000) << "too slow";
  }
  world.RunFor(500'000);  // The last records and their reactions.
  const long end_rss = ProcessStatus(world.avd_pid(), "RssAnon");
  const int status = world.StopAvd();
  sd_bus_flush_close_unref(client);
  const std::string log = ReadFile(world.directory().avd_log());

  EXPECT_EQ(counts.failed, 0);
  EXPECT_EQ(waves, kWaves);
  EXPECT_EQ(presses, kPresses);
  EXPECT_GT(world.sets(), 0) << "no wave was prioritised";
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0)
      << "the daemon ended with " << status << "; its log:\n" << log;
  EXPECT_EQ(log.find("Sanitizer"), std::string::npos) << log;
  EXPECT_EQ(log.find("runtime error"), std::string::npos) << log;
  EXPECT_LE(end_rss - warm_rss, kFlatKiB)
      << "RssAnon " << warm_rss << " KiB after " << kWarmUpCalls
      << " calls, " << end_rss << " KiB after " << kCalls;
  RecordProperty("rss_after_warm_up_kib", static_cast<int>(warm_rss));
  RecordProperty("rss_at_end_kib", static_cast<int>(end_rss));
  RecordProperty("seconds",
                 static_cast<int>((NowNs(CLOCK_MONOTONIC) - start) / 1e9));
}

}  // namespace
}  // namespace morvane::ap
