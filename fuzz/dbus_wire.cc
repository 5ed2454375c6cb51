#include "fuzz/dbus_wire.h"

#include <glog/logging.h>
#include <sys/socket.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <string>

namespace morvane::ap {
namespace {

// The server's half of the authentication: the client below asks for
// nothing but ANONYMOUS, and this accepts it.
constexpr char kServerOk[] = "OK 0123456789abcdef0123456789abcdef\r\n";

struct Receiver {
  const std::function<void(sd_bus_message*)>* on_message;
  size_t count = 0;
};

int OnMessage(sd_bus_message* message, void* userdata, sd_bus_error*) {
  auto* receiver = static_cast<Receiver*>(userdata);
  ++receiver->count;
  (*receiver->on_message)(message);
  // Handled: no automatic error reply to a method call nobody serves.
  return 1;
}

}  // namespace

size_t ReceiveMessages(const uint8_t* wire, size_t size,
                       const std::function<void(sd_bus_message*)>& on_message) {
  int fds[2];
  PCHECK(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) == 0);
  // All of it is written before the client reads: the buffer must hold it.
  const int buffer_size = static_cast<int>(size + sizeof(kServerOk) + 4096);
  PCHECK(setsockopt(fds[1], SOL_SOCKET, SO_SNDBUF, &buffer_size,
                    sizeof(buffer_size)) == 0);
  // The server's answer to the authentication goes first, alone: sd-bus
  // reads the reply to its pipelined AUTH and BEGIN line by line, and a
  // "\r\n" inside message bytes read with it would count as another line
  // (an assertion in the library, not a finding of ours).
  PCHECK(write(fds[1], kServerOk, sizeof(kServerOk) - 1) ==
         static_cast<ssize_t>(sizeof(kServerOk) - 1));

  sd_bus* bus = nullptr;
  Receiver receiver{&on_message};
  CHECK_GE(sd_bus_new(&bus), 0);
  CHECK_GE(sd_bus_set_fd(bus, fds[0], fds[0]), 0);
  CHECK_GE(sd_bus_set_anonymous(bus, 1), 0);
  CHECK_GE(sd_bus_negotiate_fds(bus, 0), 0);
  CHECK_GE(sd_bus_add_filter(bus, nullptr, &OnMessage, &receiver), 0);
  CHECK_GE(sd_bus_start(bus), 0);
  for (int i = 0; i < 100 && sd_bus_is_ready(bus) <= 0; ++i) {
    if (sd_bus_process(bus, nullptr) > 0) continue;
    sd_bus_wait(bus, 10'000);
  }
  CHECK_GT(sd_bus_is_ready(bus), 0) << "the authentication did not end";

  for (size_t written = 0; written < size;) {
    const ssize_t n = write(fds[1], wire + written, size - written);
    PCHECK(n > 0) << "the socket buffer is too small for the input";
    written += n;
  }
  PCHECK(shutdown(fds[1], SHUT_WR) == 0);
  // Everything is in the socket already: a wait that times out means sd-bus
  // has taken all it will.
  for (;;) {
    const int r = sd_bus_process(bus, nullptr);
    if (r > 0) continue;
    if (r < 0 || sd_bus_is_open(bus) <= 0) break;
    if (sd_bus_wait(bus, 100'000) <= 0) break;
  }
  sd_bus_flush_close_unref(bus);
  close(fds[1]);
  return receiver.count;
}

}  // namespace morvane::ap
