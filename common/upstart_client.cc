#include "common/upstart_client.h"

#include "platform/bus.h"
#include "platform/dbus_message.h"
#include "platform/object_proxy.h"

namespace morvane::ap {
namespace {

constexpr char kManagerInterface[] = "com.ubuntu.Upstart0_6";
constexpr char kJobInterface[] = "com.ubuntu.Upstart0_6.Job";
constexpr char kInstanceInterface[] = "com.ubuntu.Upstart0_6.Instance";

}  // namespace

UpstartClient::UpstartClient() {
  // Without a bus every call fails; that is reported by the calls.
  bus_ = Bus::ConnectSystemBus(nullptr, nullptr);
  if (bus_) {
    upstart_proxy_ = std::make_unique<ObjectProxy>(bus_, kServiceName,
                                                   ObjectPath{kManagerPath});
  }
}

UpstartClient::~UpstartClient() = default;

template <typename... Args>
std::unique_ptr<Message> UpstartClient::Call(const std::string& path,
                                             const std::string& interface,
                                             const std::string& method,
                                             ErrorPtr* error,
                                             const Args&... args) {
  if (!bus_) {
    Error::AddToPrintf(error, FROM_HERE, kDbusErrorDomain,
                       "org.freedesktop.DBus.Error.Failed",
                       "Failed to call D-Bus method: %s.%s", interface.c_str(),
                       method.c_str());
    return nullptr;
  }
  if (path == kManagerPath) {
    return upstart_proxy_->CallMethodAndBlock(
        interface, method, ObjectProxy::kTimeoutUseDefault, error, args...);
  }
  ObjectProxy proxy(bus_, kServiceName, ObjectPath{path});
  return proxy.CallMethodAndBlock(interface, method,
                                  ObjectProxy::kTimeoutUseDefault, error,
                                  args...);
}

void UpstartClient::EmitEvent(const std::string& name,
                              const std::vector<std::string>& env, bool wait) {
  // Nobody to tell: an event is a broadcast, and its listeners' jobs report
  // their own failures.
  ErrorPtr error;
  Call(kManagerPath, kManagerInterface, "EmitEvent", &error, name, env, wait);
}

bool UpstartClient::GetJobPath(const std::string& job, std::string* path,
                               ErrorPtr* error) {
  std::unique_ptr<Message> reply =
      Call(kManagerPath, kManagerInterface, "GetJobByName", error, job);
  ObjectPath job_path;
  if (!reply || !ExtractMethodCallResults(reply.get(), error, &job_path)) {
    return false;
  }
  *path = job_path.value;
  return true;
}

bool UpstartClient::StartJob(const std::string& job,
                             const std::vector<std::string>& env, bool wait,
                             ErrorPtr* error) {
  std::string path;
  return GetJobPath(job, &path, error) &&
         Call(path, kJobInterface, "Start", error, env, wait) != nullptr;
}

bool UpstartClient::StopJob(const std::string& job, bool wait,
                            ErrorPtr* error) {
  std::string path;
  if (!GetJobPath(job, &path, error)) return false;
  std::unique_ptr<Message> reply =
      Call(path, kJobInterface, "GetAllInstances", error);
  std::vector<ObjectPath> instances;
  if (!reply || !ExtractMethodCallResults(reply.get(), error, &instances)) {
    return false;
  }
  // Stop takes the wait flag alone, unlike Start. One instance that fails
  // to stop must not keep the others running.
  bool stopped = true;
  for (const ObjectPath& instance : instances) {
    if (!Call(instance.value, kInstanceInterface, "Stop", error, wait)) {
      stopped = false;
    }
  }
  return stopped;
}

}  // namespace morvane::ap
