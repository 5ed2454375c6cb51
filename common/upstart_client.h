#ifndef COMMON_UPSTART_CLIENT_H_
#define COMMON_UPSTART_CLIENT_H_

#include <memory>
#include <string>
#include <vector>

#include "platform/error.h"

namespace morvane::ap {

class Bus;
class Message;
class ObjectProxy;

// The client of the init system, Upstart, on the system bus: emits events
// and starts and stops jobs. Meant to live for one operation: it opens a
// connection of its own, and every call blocks the caller (and so the
// loop) until Upstart answers or the bus library's default time-out,
// 25 s, passes. Upstart need not be running.
//
// Failures are errors of domain "dbus": the error Upstart replied with, the
// library's (a time-out, no such service), an InvalidArgs error for a reply
// of the wrong shape, or "org.freedesktop.DBus.Error.Failed" with "Failed
// to call D-Bus method: <interface>.<method>".
class UpstartClient {
 public:
  static constexpr char kServiceName[] = "com.ubuntu.Upstart";
  static constexpr char kManagerPath[] = "/com/ubuntu/Upstart";

  UpstartClient();
  UpstartClient(const UpstartClient&) = delete;
  UpstartClient& operator=(const UpstartClient&) = delete;
  // Sends what is queued and closes the connection, blocking.
  ~UpstartClient();

  // Emits the event |name| with |env| (KEY=VALUE entries); with |wait|
  // Upstart answers once the jobs the event starts have started. The
  // outcome is dropped on purpose: nobody is told, nothing is logged.
  void EmitEvent(const std::string& name, const std::vector<std::string>& env,
                 bool wait);

  // Starts the job |job| with |env|. Returns false and adds to |error| on
  // failure.
  bool StartJob(const std::string& job, const std::vector<std::string>& env,
                bool wait, ErrorPtr* error);

  // Stops every instance of |job| in turn; a failure to stop one does not
  // end the others' turns. Returns false and adds to |error| for each
  // failure.
  bool StopJob(const std::string& job, bool wait, ErrorPtr* error);

 private:
  // Calls |method| of |interface| on the object |path| of Upstart and
  // blocks until the reply, with the library's default time-out.
  template <typename... Args>
  std::unique_ptr<Message> Call(const std::string& path,
                                const std::string& interface,
                                const std::string& method, ErrorPtr* error,
                                const Args&... args);
  // The job's object path from GetJobByName.
  bool GetJobPath(const std::string& job, std::string* path, ErrorPtr* error);

  std::shared_ptr<Bus> bus_;
  std::unique_ptr<ObjectProxy> upstart_proxy_;
};

}  // namespace morvane::ap

#endif  // COMMON_UPSTART_CLIENT_H_
