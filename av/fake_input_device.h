#ifndef AV_FAKE_INPUT_DEVICE_H_
#define AV_FAKE_INPUT_DEVICE_H_

#include <cstdint>
#include <string>

namespace morvane::ap {

// The native kernel input record (struct input_event) stamped |time_us|.
std::string InputRecord(int64_t time_us, uint16_t type, uint16_t code,
                        int32_t value);

// A FIFO standing in for an evdev device in tests, in a fresh temporary
// directory that the destructor removes. The FIFO is held open for reading
// and writing, so that it never reaches its end and writes never block.
class FakeInputDevice {
 public:
  FakeInputDevice();
  FakeInputDevice(const FakeInputDevice&) = delete;
  FakeInputDevice& operator=(const FakeInputDevice&) = delete;
  ~FakeInputDevice();

  // The directory holding the FIFO; tests may put other files there.
  const std::string& dir() const { return dir_; }
  const std::string& path() const { return path_; }

  // Makes a sysroot under dir() whose platform settings name this device
  // and whose touch-feedback clip holds |clip|; returns its path.
  std::string MakeSysroot(const std::string& clip) const;

  // Writes |bytes| at once: they become readable together.
  void Write(const std::string& bytes);
  void WriteEvent(uint16_t type, uint16_t code, int32_t value) {
    Write(InputRecord(0, type, code, value));
  }

  // Ends the writer's side: readers see the end of the stream once the
  // written bytes are read.
  void CloseWriter();

 private:
  const std::string dir_;
  const std::string path_;
  int fd_ = -1;
};

}  // namespace morvane::ap

#endif  // AV_FAKE_INPUT_DEVICE_H_
