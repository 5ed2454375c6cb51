#include "fuzz/fake_bus_daemon.h"

#include <endian.h>
#include <fcntl.h>
#include <glog/logging.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>

namespace morvane::ap {
namespace {

constexpr char kDriver[] = "org.freedesktop.DBus";
constexpr char kClientName[] = ":1.1";

// The length of the longest start of |wire| made of whole messages, as the
// fixed part of each header measures them (16 bytes, the header fields
// padded to 8, the body). When a header cannot even be measured the
// connection ends there anyway: then all of |wire| counts.
size_t WholeMessages(const uint8_t* wire, size_t size) {
  size_t at = 0;
  while (size - at >= 16) {
    const uint8_t* header = wire + at;
    if (header[0] != 'l' && header[0] != 'B') return size;
    const auto u32 = [&](size_t offset) {
      uint32_t value;
      memcpy(&value, header + offset, sizeof(value));
      return uint64_t{header[0] == 'l' ? le32toh(value) : be32toh(value)};
    };
    const uint64_t length = 16 + ((u32(12) + 7) & ~uint64_t{7}) + u32(4);
    if (length > size - at) break;
    at += length;
  }
  return at;
}

std::string SocketName() { return "avd-fuzz-" + std::to_string(getpid()); }

// Listens for the life of the process: one connection per input.
int ListeningSocket() {
  static const int fd = [] {
    const int s = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    PCHECK(s >= 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string name = SocketName();
    memcpy(address.sun_path + 1, name.data(), name.size());
    PCHECK(bind(s, reinterpret_cast<sockaddr*>(&address),
                offsetof(sockaddr_un, sun_path) + 1 + name.size()) == 0);
    PCHECK(listen(s, 4) == 0);
    return s;
  }();
  return fd;
}

// Answers the calls of the bus daemon itself; leaves the others unanswered
// (and unrefused). A reply fails only when the client has hung up, which
// ends the connection anyway.
int OnCall(sd_bus_message* call, void*, sd_bus_error*) {
  const char* destination = sd_bus_message_get_destination(call);
  if (!destination || strcmp(destination, kDriver) != 0) return 1;
  if (sd_bus_message_is_method_call(call, kDriver, "Hello")) {
    sd_bus_reply_method_return(call, "s", kClientName);
  } else if (sd_bus_message_is_method_call(call, kDriver, "AddMatch") ||
             sd_bus_message_is_method_call(call, kDriver, "RemoveMatch")) {
    sd_bus_reply_method_return(call, "");
  }
  return 1;
}

}  // namespace

FakeBusDaemon::FakeBusDaemon() {
  ListeningSocket();
  PCHECK(pipe2(go_, O_CLOEXEC) == 0);
  thread_ = std::thread([this] { Serve(); });
}

FakeBusDaemon::~FakeBusDaemon() {
  thread_.join();
  close(go_[0]);
  close(go_[1]);
}

std::string FakeBusDaemon::address() { return "unix:abstract=" + SocketName(); }

void FakeBusDaemon::Finish(const uint8_t* wire, size_t size) {
  wire_ = wire;
  size_ = size;
  PCHECK(write(go_[1], "", 1) == 1);
}

void FakeBusDaemon::Serve() {
  const int fd = accept4(ListeningSocket(), nullptr, nullptr, SOCK_CLOEXEC);
  PCHECK(fd >= 0);
  sd_bus* bus = nullptr;
  sd_id128_t id{};
  CHECK_GE(sd_bus_new(&bus), 0);
  CHECK_GE(sd_bus_set_fd(bus, fd, fd), 0);
  CHECK_GE(sd_bus_set_server(bus, 1, id), 0);
  CHECK_GE(sd_bus_add_filter(bus, nullptr, &OnCall, nullptr), 0);
  CHECK_GE(sd_bus_start(bus), 0);
  // Serves until the client hangs up, also after the bytes: the clients
  // add matches while they read them.
  bool sent = false;
  for (;;) {
    int r;
    while ((r = sd_bus_process(bus, nullptr)) > 0) {
    }
    if (r < 0) break;
    pollfd fds[] = {
        {sd_bus_get_fd(bus), static_cast<short>(sd_bus_get_events(bus)), 0},
        {sent ? -1 : go_[0], POLLIN, 0}};
    PCHECK(poll(fds, 2, -1) >= 0);
    if (!sent && fds[1].revents) {
      Send(bus, fd);
      sent = true;
    }
  }
  sd_bus_flush_close_unref(bus);
}

void FakeBusDaemon::Send(sd_bus* bus, int fd) {
  // The bytes go after the answers, never into one.
  sd_bus_flush(bus);
  const uint8_t* wire = wire_;
  for (size_t left = WholeMessages(wire_, size_); left > 0;) {
    const ssize_t n = send(fd, wire, left, MSG_NOSIGNAL);
    if (n <= 0) return;  // The client hung up first.
    wire += n;
    left -= n;
  }
  sd_bus_message* end = nullptr;
  CHECK_GE(sd_bus_message_new_signal(bus, &end, "/", kEndInterface, kEndMember),
           0);
  sd_bus_send(bus, end, nullptr);
  sd_bus_message_unref(end);
}

}  // namespace morvane::ap
