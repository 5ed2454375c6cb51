// The touch button's evdev records: arbitrary bytes written in arbitrary
// pieces, at arbitrary times, into the FIFO that the platform settings
// name as the input device, read by the daemon's InputManager. This program
// is its own audio library: it checks each clip it is handed.

#include <fcntl.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <glog/logging.h>
#include <linux/input.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "av/input_manager.h"
#include "common/platform_settings.h"
#include "fuzz/fuzz_support.h"
#include "platform/fake_task_loop.h"
#include "stubs/pavo/pavo.h"

namespace {

// Odd-sized: the last byte is half a frame.
constexpr char kClip[] = "click";
constexpr size_t kClipSize = sizeof(kClip) - 1;

int g_connects = 0;
size_t g_plays = 0;

}  // namespace

extern "C" {

struct pavo_client {
  int unused;
};

int pavo_helper_create_connect(pavo_client** client) {
  // Every third connection fails, as when the audio server restarts.
  if (++g_connects % 3 == 0) {
    *client = nullptr;
    return -ECONNREFUSED;
  }
  *client = new pavo_client;
  return 0;
}

int pavo_client_get_first_dev_type_idx(pavo_client* client, int, int) {
  CHECK(client);
  return 0;
}

int pavo_helper_play_buffer(pavo_client* client, const void* buffer,
                            size_t frames, int format, int rate, int channels,
                            int device) {
  CHECK(client);
  CHECK_EQ(format, 2);
  CHECK_EQ(rate, 48000);
  CHECK_EQ(channels, 1);
  CHECK_EQ(device, 0);
  CHECK_EQ(frames, kClipSize / 2);
  CHECK_EQ(memcmp(buffer, kClip, frames * 2), 0);
  ++g_plays;
  return 0;
}

void pavo_client_destroy(pavo_client* client) { delete client; }

}  // extern "C"

namespace morvane::ap {
namespace {

// The sysroot, made once: settings naming a FIFO as the device, the clip.
const std::string& DevicePath() {
  static const TempDir root;
  static const std::string path = [] {
    const std::string device = root.path() + "/event0";
    PCHECK(mkfifo(device.c_str(), 0600) == 0);
    const std::filesystem::path settings =
        root.path() + PlatformSettings::kPlatformSettingsPath;
    const std::filesystem::path clip =
        root.path() + InputManager::kFeedbackAudioPath;
    std::filesystem::create_directories(settings.parent_path());
    std::filesystem::create_directories(clip.parent_path());
    std::ofstream(settings)
        << "PLATFORM_TOUCH_INPUT_EVENT_PATH='" << device << "'\n";
    std::ofstream(clip) << kClip;
    setenv("AVD_SYSROOT", root.path().c_str(), 1);
    return device;
  }();
  return path;
}

}  // namespace
}  // namespace morvane::ap

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  morvane::ap::QuietLogging();
  morvane::ap::DevicePath();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace morvane::ap;
  // Opened for writing and reading, so that neither open waits.
  const int writer = open(DevicePath().c_str(), O_RDWR | O_NONBLOCK);
  PCHECK(writer >= 0);
  g_plays = 0;
  {
    FakeTaskLoop loop;
    InputManager manager(&loop);
    FuzzedDataProvider input(data, size);
    while (input.remaining_bytes() > 0) {
      const size_t length = input.ConsumeIntegralInRange<size_t>(1, 64);
      // Up to 300 ms between pieces, around the 200 ms between clicks.
      loop.FastForwardBy(input.ConsumeIntegralInRange<int64_t>(0, 300'000));
      const std::vector<uint8_t> piece = input.ConsumeBytes<uint8_t>(length);
      PCHECK(write(writer, piece.data(), piece.size()) ==
             static_cast<ssize_t>(piece.size()));
      loop.RunUntilIdle();
    }
    close(writer);
    loop.RunUntilIdle();
  }
  // A click needs a whole record of a press.
  CHECK_LE(g_plays * sizeof(input_event), size);
  return 0;
}
