// The proximity sensor's event records: arbitrary bytes written in
// arbitrary pieces into the pipe an IioEventStream reads, with a
// GestureMonitor on top, as the daemon reads its sensor.

#include <fuzzer/FuzzedDataProvider.h>
#include <glog/logging.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "tests/fixtures/fake_iio_event_stream.h"
#include "av/gesture_monitor.h"
#include "fuzz/fuzz_support.h"
#include "platform/fake_task_loop.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  morvane::ap::QuietLogging();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace morvane::ap;
  int fds[2];
  PCHECK(pipe(fds) == 0);
  FakeTaskLoop loop;
  size_t waves = 0;
  {
    GestureMonitor monitor(std::make_unique<FakeIioEventStream>(fds[0], &loop));
    monitor.set_wave_callback([&](const IioEvent&) { ++waves; });
    // Each piece is written after the previous one was read, so records
    // arrive whole, split or several at once.
    FuzzedDataProvider input(data, size);
    while (input.remaining_bytes() > 0) {
      const std::vector<uint8_t> piece = input.ConsumeBytes<uint8_t>(
          input.ConsumeIntegralInRange<size_t>(1, 64));
      PCHECK(write(fds[1], piece.data(), piece.size()) ==
             static_cast<ssize_t>(piece.size()));
      loop.RunUntilIdle();
    }
    close(fds[1]);
    loop.RunUntilIdle();
  }
  // Every wave is a rising record after a falling one.
  CHECK_LE(16 * waves, size);
  return 0;
}
