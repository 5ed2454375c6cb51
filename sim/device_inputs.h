#ifndef SIM_DEVICE_INPUTS_H_
#define SIM_DEVICE_INPUTS_H_

#include <cstdint>
#include <string>

#include "platform/error.h"

namespace morvane::ap {

// The write side of a simulated device FIFO. The FIFO is held open for
// reading and writing, so that the daemon's open never blocks and a write
// never blocks the simulator: when the FIFO is full the record is dropped.
class FifoWriter {
 public:
  FifoWriter() = default;
  FifoWriter(const FifoWriter&) = delete;
  FifoWriter& operator=(const FifoWriter&) = delete;
  ~FifoWriter();

  // Returns false and adds to |error| if |path| cannot be opened.
  bool Open(const std::string& path, ErrorPtr* error);

  // Writes |records| whole or not at all; false when they were dropped.
  bool Write(const std::string& records);

  // Discards whatever nobody read, so that a restarted daemon does not get
  // events meant for its predecessor.
  void Drain();

  // Lets go of the FIFO, as an unplugged device would: its reader reaches
  // the end once it has read what is left. Writes fail from then on.
  void Close();

 private:
  int fd_ = -1;
};

// One native kernel input record (struct input_event) stamped |time_us|.
std::string MakeInputRecord(int64_t time_us, uint16_t type, uint16_t code,
                            int32_t value);

// Native kernel input records (struct input_event) of one button press and
// release of key |code|, each followed by a sync report, stamped
// |wall_time_us|.
std::string MakeButtonPressRecords(uint16_t code, int64_t wall_time_us);

// The two IIO event records of a hand wave over the proximity sensor: a
// falling threshold event at |falling_ns| and a rising one |gap_ns| later.
std::string MakeWaveRecords(int64_t falling_ns, int64_t gap_ns);

// The IIO event code of a threshold event on proximity channel 0;
// |direction| is 1 (rising) or 2 (falling).
uint64_t ProximityThresholdEventId(int direction);

}  // namespace morvane::ap

#endif  // SIM_DEVICE_INPUTS_H_
