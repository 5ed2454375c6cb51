// The yardstick of the benchmark table: a bare sd-bus service with the
// Manager's two busiest methods and the daemon's libraries loaded, and
// nothing else. It claims the name given as its argument at once and
// serves until killed.

#include <systemd/sd-bus.h>

#include <cstdint>
#include <cstdio>

#include "common/storage.pb.h"
#include "stubs/lightcontrol/lightcontrol.h"
#include "stubs/metrics/metrics_library.h"
#include "stubs/pavo/pavo.h"

namespace {

int OnSetLedState(sd_bus_message* call, void*, sd_bus_error*) {
  return sd_bus_reply_method_return(call, "");
}

int OnSetOperationInProgress(sd_bus_message* call, void*, sd_bus_error*) {
  static uint32_t next = 0;
  return sd_bus_reply_method_return(call, "u", ++next);
}

const sd_bus_vtable kVtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("SetLedState", "ssu", "", &OnSetLedState,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("SetOperationInProgress", "u", "u",
                  &OnSetOperationInProgress, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr, "usage: %s SERVICE_NAME\n", argv[0]);
    return 2;
  }
  // Touch each library the daemon loads, so that none is dropped from the
  // program and the start-up figure pays for loading them all.
  volatile bool touch = false;
  if (touch) {
    morvane::ap::DeviceConfiguration().SerializeAsString();
    light_get_proximity_device_path();
    pavo_client_destroy(nullptr);
    metrics::MetricsLibrary().Init();
  }
  sd_bus* bus = nullptr;
  if (sd_bus_open_system(&bus) < 0 ||
      sd_bus_add_object_vtable(bus, nullptr,
                               "/org/tessaly/ap/AudioVisual/Manager",
                               "org.tessaly.ap.AudioVisual.Manager", kVtable,
                               nullptr) < 0 ||
      sd_bus_request_name(bus, argv[1], 0) < 0) {
    fprintf(stderr, "Failed to serve %s\n", argv[1]);
    return 1;
  }
  while (true) {
    const int r = sd_bus_process(bus, nullptr);
    if (r < 0) return 1;
    if (r == 0 && sd_bus_wait(bus, UINT64_MAX) < 0) return 1;
  }
}
