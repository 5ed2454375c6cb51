#ifndef PEERS_PEER_BUS_H_
#define PEERS_PEER_BUS_H_

#include <memory>
#include <string>

#include "platform/error.h"
#include "peers/child_process.h"

typedef struct sd_bus sd_bus;
typedef struct sd_event sd_event;
typedef struct sd_bus_vtable sd_bus_vtable;

namespace morvane::ap {

// The <policy> element of a private bus on which everyone may do
// everything.
extern const char kOpenBusPolicy[];

// The configuration of a private bus in the system bus's shape (type,
// socket at |socket_path|, EXTERNAL authentication) with |policies| (its
// <policy> elements).
std::string PrivateBusConfig(const std::string& socket_path,
                             const std::string& policies = kOpenBusPolicy);

// Starts dbus-daemon with the configuration file |config| as a child
// watched on |event|, and waits (at most 10 s) until it prints the address
// it listens on, stored in |*address|. Returns null and adds to |error| when
// it does not start or prints no address.
std::unique_ptr<ChildProcess> StartBusDaemon(
    sd_event* event, const std::string& config,
    ChildProcess::ExitCallback on_exit, std::string* address, ErrorPtr* error);

// Opens a new client connection to the bus at |address| and attaches it to
// |event|. Each simulated peer has its own, so that it can leave the bus and
// come back. Returns null and adds to |error| on failure. Close the result
// with sd_bus_flush_close_unref().
sd_bus* ConnectToBus(const std::string& address, sd_event* event,
                     ErrorPtr* error);

// What a simulated peer puts on the bus: one interface at one path, an
// optional object manager, and the well-known name claimed last, so that a
// client seeing the name appear finds everything in place.
struct PeerExport {
  const char* service;
  const char* path;
  const char* interface;
  const sd_bus_vtable* vtable;
  void* userdata;
  const char* object_manager_path = nullptr;
};

// Connects a new connection (see ConnectToBus), exports |peer| on it and
// claims the name (blocking: only the bus daemon answers). Returns null and
// adds to |error| when any step fails.
sd_bus* StartPeer(const std::string& address, sd_event* event,
                  const PeerExport& peer, ErrorPtr* error);

}  // namespace morvane::ap

#endif  // PEERS_PEER_BUS_H_
