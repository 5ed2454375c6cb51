#ifndef AV_GESTURE_MONITOR_H_
#define AV_GESTURE_MONITOR_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "av/iio_event_stream.h"

namespace morvane::ap {

// Recognises a hand wave over the proximity sensor: a falling threshold
// event followed by a rising one less than 500 ms later, measured on the
// events' own timestamps (so the loop's delays do not matter). Each rising
// event within the window of the last falling one is a wave, also a second
// one. Foreign events are logged and dropped.
class GestureMonitor {
 public:
  using WaveCallback = std::function<void(const IioEvent& rising)>;

  // The longest rise after a fall that still makes a wave.
  static constexpr int64_t kWaveWindowNs = 499'999'999;

  // Takes |stream| and starts it; a stream that cannot start is logged and
  // the monitor never reports.
  explicit GestureMonitor(std::unique_ptr<IioEventStream> stream);
  GestureMonitor(const GestureMonitor&) = delete;
  GestureMonitor& operator=(const GestureMonitor&) = delete;
  // Closes the stream; no callback runs afterwards.
  ~GestureMonitor();

  // The stream read, for whether it is read and why not.
  IioEventStream& stream() { return *stream_; }

  // Runs on the loop for each wave; waves before it is set are dropped.
  void set_wave_callback(WaveCallback callback) {
    wave_callback_ = std::move(callback);
  }

 private:
  void OnIioEvent(const IioEvent& event);

  std::unique_ptr<IioEventStream> stream_;
  WaveCallback wave_callback_;
  // Unset until the first falling event: a rise before any fall is no wave.
  std::optional<int64_t> last_falling_ns_;
};

}  // namespace morvane::ap

#endif  // AV_GESTURE_MONITOR_H_
