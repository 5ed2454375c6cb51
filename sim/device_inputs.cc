#include "sim/device_inputs.h"

#include <fcntl.h>
#include <linux/input.h>
#include <unistd.h>

#include "peers/system_error.h"

namespace morvane::ap {
namespace {

constexpr uint64_t kEventTypeThreshold = 0;
constexpr uint64_t kChannelTypeProximity = 8;

// struct iio_event_data: u64 id, s64 timestamp, native byte order.
void AppendIioEvent(std::string* out, uint64_t id, int64_t timestamp_ns) {
  out->append(reinterpret_cast<const char*>(&id), sizeof(id));
  out->append(reinterpret_cast<const char*>(&timestamp_ns),
              sizeof(timestamp_ns));
}

}  // namespace

FifoWriter::~FifoWriter() {
  if (fd_ >= 0) close(fd_);
}

bool FifoWriter::Open(const std::string& path, ErrorPtr* error) {
  fd_ = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  return fd_ >= 0 || SystemCallFailed(error, "open " + path);
}

bool FifoWriter::Write(const std::string& records) {
  if (fd_ < 0) return false;
  // Writes up to PIPE_BUF bytes are atomic: all or EAGAIN.
  const ssize_t n = write(fd_, records.data(), records.size());
  return n == static_cast<ssize_t>(records.size());
}

void FifoWriter::Close() {
  if (fd_ >= 0) close(fd_);
  fd_ = -1;
}

void FifoWriter::Drain() {
  if (fd_ < 0) return;
  char buffer[4096];
  while (read(fd_, buffer, sizeof(buffer)) > 0) {
  }
}

std::string MakeInputRecord(int64_t time_us, uint16_t type, uint16_t code,
                            int32_t value) {
  input_event event{};
  event.input_event_sec = time_us / 1000000;
  event.input_event_usec = time_us % 1000000;
  event.type = type;
  event.code = code;
  event.value = value;
  return std::string(reinterpret_cast<const char*>(&event), sizeof(event));
}

std::string MakeButtonPressRecords(uint16_t code, int64_t wall_time_us) {
  std::string out;
  out += MakeInputRecord(wall_time_us, EV_KEY, code, 1);
  out += MakeInputRecord(wall_time_us, EV_SYN, SYN_REPORT, 0);
  out += MakeInputRecord(wall_time_us + 80'000, EV_KEY, code, 0);
  out += MakeInputRecord(wall_time_us + 80'000, EV_SYN, SYN_REPORT, 0);
  return out;
}

uint64_t ProximityThresholdEventId(int direction) {
  return (kEventTypeThreshold << 56) |
         (static_cast<uint64_t>(direction & 0x7f) << 48) |
         (kChannelTypeProximity << 32);
}

std::string MakeWaveRecords(int64_t falling_ns, int64_t gap_ns) {
  std::string out;
  AppendIioEvent(&out, ProximityThresholdEventId(2), falling_ns);
  AppendIioEvent(&out, ProximityThresholdEventId(1), falling_ns + gap_ns);
  return out;
}

}  // namespace morvane::ap
