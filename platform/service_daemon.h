#ifndef PLATFORM_SERVICE_DAEMON_H_
#define PLATFORM_SERVICE_DAEMON_H_

#include <memory>
#include <string>

#include "platform/bus.h"

namespace morvane::ap {

class AsyncEventSequencer;
class EventLoop;
class ExportedObjectManager;
class TaskLoop;

// The base of a D-Bus service: owns the loop, the system-bus connection and
// the exported object manager, and claims the service name once the
// service's objects are on the bus.
class ServiceDaemon {
 public:
  // |root_path| is where the object manager goes.
  ServiceDaemon(std::string service_name, std::string root_path);
  ServiceDaemon(const ServiceDaemon&) = delete;
  ServiceDaemon& operator=(const ServiceDaemon&) = delete;
  // Derived members go first, then the object manager, the bus and the loop.
  virtual ~ServiceDaemon();

  // Creates the loop (ending on SIGTERM and SIGINT with 0; SIGHUP, SIGUSR1
  // and SIGUSR2 are logged and otherwise ignored), connects the
  // system bus, registers the object manager, calls
  // RegisterServiceObjects() once and claims the service name after every
  // handler of the sequencer has been called. Runs until the loop ends and
  // returns its exit code; without a bus, when the name cannot be claimed,
  // or when the bus goes away, logs why in one line and returns
  // EX_UNAVAILABLE, so that the init system starts the service again. Call
  // once.
  int Run();

 protected:
  // Puts the service's objects on the bus. Each asynchronous registration
  // takes a handler from |sequencer|, which lives until the name is claimed.
  virtual void RegisterServiceObjects(AsyncEventSequencer* sequencer) = 0;

  // Valid from RegisterServiceObjects() on. Virtual so that a test can run
  // a derived daemon's reactions on a fake loop.
  virtual TaskLoop* loop() const;
  EventLoop* event_loop() const { return loop_.get(); }
  const std::shared_ptr<Bus>& bus() const { return bus_; }
  ExportedObjectManager* object_manager() const {
    return object_manager_.get();
  }
  const std::string& service_name() const { return service_name_; }

 private:
  void ClaimServiceName();

  const std::string service_name_;
  const std::string root_path_;
  std::unique_ptr<EventLoop> loop_;
  std::shared_ptr<Bus> bus_;
  std::unique_ptr<ExportedObjectManager> object_manager_;
  std::unique_ptr<AsyncEventSequencer> sequencer_;
  BusSlot bus_lost_slot_;
};

}  // namespace morvane::ap

#endif  // PLATFORM_SERVICE_DAEMON_H_
