// The daemon's D-Bus clients as a peer sees them: the connection manager's
// client, the controller's object manager with its configuration objects,
// and the group monitor's properties, each on a real bus connection whose
// bus daemon (a fake one) hands them arbitrary bytes as replies and
// signals. sd-bus parses the bytes; the clients' own handlers read what it
// makes of them.
//
// Input: the messages the bus sends after answering Hello and the first
// AddMatch calls (it goes on answering AddMatch). The clients'
// asynchronous calls have fixed serials on the connection, from the order
// in which the clients are made below (see make_corpus.py).

#include <glog/logging.h>
#include <systemd/sd-bus.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "common/vantle_client.h"
#include "dbus/configuration_proxy.h"
#include "dbus/group_monitor_proxy.h"
#include "fuzz/fake_bus_daemon.h"
#include "fuzz/fuzz_support.h"
#include "platform/bus.h"
#include "platform/event_loop.h"

namespace morvane::ap {
namespace {

namespace Controller = org::tessaly::ap::Controller;

// Larger inputs say nothing new.
constexpr size_t kMaxInput = 64 * 1024;

// Everything is read at the bus's end signal, or when the bytes broke the
// connection: the loop's cue to stop.
int OnMessage(sd_bus_message* message, void* userdata, sd_bus_error*) {
  if (sd_bus_message_is_signal(message, FakeBusDaemon::kEndInterface,
                               FakeBusDaemon::kEndMember) ||
      sd_bus_message_is_signal(message, "org.freedesktop.DBus.Local",
                               "Disconnected")) {
    static_cast<EventLoop*>(userdata)->Quit(0);
  }
  return 0;
}

}  // namespace
}  // namespace morvane::ap

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  morvane::ap::QuietLogging();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace morvane::ap;
  if (size > kMaxInput) return 0;
  std::unique_ptr<EventLoop> loop = EventLoop::Create(nullptr);
  CHECK(loop);
  FakeBusDaemon daemon;
  ErrorPtr error;
  std::shared_ptr<Bus> bus =
      Bus::Connect(loop.get(), FakeBusDaemon::address(), &error);
  CHECK(bus) << error->message();
  sd_bus_slot* filter = nullptr;
  CHECK_GE(sd_bus_add_filter(bus->raw(), &filter, &OnMessage, loop.get()), 0);
  {
    VantleClient connection_manager(bus);
    connection_manager.RegisterConnectionStateCallback(
        [](const std::string& state) { CHECK(!state.empty()); });

    Controller::ObjectManagerProxy controller(bus);
    controller.SetConfigurationAddedCallback(
        [](Controller::ConfigurationProxyInterface* proxy) {
          proxy->device_configuration();
          proxy->runtime_state();
        });

    org::tessaly::ap::GroupMonitorProxy group_monitor(
        bus, org::tessaly::ap::kGroupMonitorServiceName,
        ObjectPath{org::tessaly::ap::kGroupMonitorPath});
    group_monitor.SetUpProperties(
        [](org::tessaly::ap::GroupMonitorProxyInterface* proxy,
           const std::string&) {
          proxy->is_root();
          proxy->root_software_version();
        });

    daemon.Finish(data, size);
    CHECK_EQ(loop->Run(), 0);
  }
  sd_bus_slot_unref(filter);
  return 0;
}
