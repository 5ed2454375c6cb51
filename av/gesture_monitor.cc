#include "av/gesture_monitor.h"

#include <glog/logging.h>

#include <utility>

namespace morvane::ap {
namespace {

// The kernel's IIO event code, upper half: type in bits 24-31, direction
// in 16-22, channel type in 0-7.
constexpr uint32_t kThresholdEvent = 0;
constexpr uint32_t kProximityChannel = 8;
constexpr uint32_t kRising = 1;
constexpr uint32_t kFalling = 2;

}  // namespace

GestureMonitor::GestureMonitor(std::unique_ptr<IioEventStream> stream)
    : stream_(std::move(stream)) {
  stream_->set_event_callback(
      [this](const IioEvent& event) { OnIioEvent(event); });
  if (!stream_->Start()) {
    LOG(WARNING) << "Unable to start reading from event stream";
  }
}

GestureMonitor::~GestureMonitor() = default;

void GestureMonitor::OnIioEvent(const IioEvent& event) {
  const uint32_t high = static_cast<uint32_t>(event.id >> 32);
  const uint32_t type = high >> 24;
  const uint32_t channel_type = high & 0xff;
  const uint32_t direction = (high >> 16) & 0x7f;
  if (type != kThresholdEvent) {
    LOG(WARNING) << "Unexpected event type: " << type;
    return;
  }
  if (channel_type != kProximityChannel) {
    LOG(WARNING) << "Unexpected channel type: " << channel_type;
    return;
  }
  if (direction != kRising && direction != kFalling) {
    LOG(WARNING) << "Unexpected event direction: " << direction;
    return;
  }
  if (direction == kFalling) {
    last_falling_ns_ = event.timestamp_ns;
    return;
  }
  if (!last_falling_ns_) return;
  // In 64-bit two's complement, as the kernel's clock values wrap. A rise
  // stamped before the fall it follows is a wave all the same.
  const auto since_fall = static_cast<int64_t>(
      static_cast<uint64_t>(event.timestamp_ns) -
      static_cast<uint64_t>(*last_falling_ns_));
  if (since_fall > kWaveWindowNs) return;
  if (wave_callback_) wave_callback_(event);
}

}  // namespace morvane::ap
