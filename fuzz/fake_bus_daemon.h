#ifndef FUZZ_FAKE_BUS_DAEMON_H_
#define FUZZ_FAKE_BUS_DAEMON_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>

typedef struct sd_bus sd_bus;

namespace morvane::ap {

// Just enough of a bus daemon for one client connection, served from a
// thread of its own so that the client's blocking calls (Hello, AddMatch)
// are answered while the fuzzer's thread waits in them. Every other call
// stays unanswered: the fuzzer's own bytes answer it, or nothing does.
// Construct it before the client connects to address(); destroy it after
// the client hung up.
class FakeBusDaemon {
 public:
  FakeBusDaemon();
  FakeBusDaemon(const FakeBusDaemon&) = delete;
  FakeBusDaemon& operator=(const FakeBusDaemon&) = delete;
  // Waits for the thread, which ends when the client hangs up.
  ~FakeBusDaemon();

  // The address a client connects to ("unix:abstract=...").
  static std::string address();

  // The signal sent after the fuzzer's bytes, so the client knows it has
  // read them all.
  static constexpr char kEndInterface[] = "org.example.FuzzBus";
  static constexpr char kEndMember[] = "End";

  // Sends the whole messages at the start of |wire| as they are, after
  // everything answered so far, then the end signal; a message cut short
  // at the end of |wire| is left out, so that it cannot swallow the end
  // signal. |wire| must stay valid until destruction.
  void Finish(const uint8_t* wire, size_t size);

 private:
  void Serve();
  void Send(sd_bus* bus, int fd);

  int go_[2] = {-1, -1};
  const uint8_t* wire_ = nullptr;
  size_t size_ = 0;
  std::thread thread_;
};

}  // namespace morvane::ap

#endif  // FUZZ_FAKE_BUS_DAEMON_H_
