#ifndef PEERS_UPSTART_PEER_H_
#define PEERS_UPSTART_PEER_H_

#include <systemd/sd-bus.h>

#include <functional>
#include <string>

#include "platform/error.h"


namespace morvane::ap {

// The simulated init system: service "com.ubuntu.Upstart", object
// "/com/ubuntu/Upstart", interface "com.ubuntu.Upstart0_6". Records every
// EmitEvent as a line "upstart <name>[ <env>...][ wait]".
class UpstartPeer {
 public:
  using Reporter = std::function<void(const std::string& line)>;

  // |event| must outlive this object.
  UpstartPeer(sd_event* event, std::string bus_address, Reporter report);
  UpstartPeer(const UpstartPeer&) = delete;
  UpstartPeer& operator=(const UpstartPeer&) = delete;
  ~UpstartPeer();

  // Joins the bus and claims the name. Returns false and adds to |error| on
  // failure.
  bool Start(ErrorPtr* error);
  void Stop();

  // While false, EmitEvent is received (and reported with " unanswered")
  // but never answered: the caller waits for its time-out.
  void set_answering(bool answering) { answering_ = answering; }

 private:
  static int OnEmitEvent(sd_bus_message* call, void* userdata,
                         sd_bus_error* error);

  sd_event* const event_;
  const std::string bus_address_;
  const Reporter report_;
  sd_bus* bus_ = nullptr;
  bool answering_ = true;
};

}  // namespace morvane::ap

#endif  // PEERS_UPSTART_PEER_H_
