// The controller's records: arbitrary bytes parsed as the DeviceConfiguration
// and RuntimeState properties, and the write-back of a wave built from a
// configuration that parsed.
//
// A record that does not parse ends the daemon by design (a fatal check in
// the configuration monitor); such input is skipped here, not a finding.
// Input: the record's bytes, then 8 bytes of wall-clock time.

#include <fuzzer/FuzzedDataProvider.h>
#include <glog/logging.h>
#include <google/protobuf/stubs/logging.h>
#include <google/protobuf/util/message_differencer.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "av/prioritized_device.h"
#include "common/runtime_state.pb.h"
#include "common/storage.pb.h"
#include "fuzz/fuzz_support.h"

namespace morvane::ap {
namespace {

using google::protobuf::util::MessageDifferencer;

// What the controller gets: the record as the daemon serialises it, parsed.
template <typename Record>
Record OverTheWire(const Record& record) {
  std::string bytes;
  CHECK(record.SerializeToString(&bytes));
  Record received;
  CHECK(received.ParseFromString(bytes));
  return received;
}

void WriteBack(const DeviceConfiguration& current, int64_t now_us) {
  // The daemon's own conditions for writing back at all.
  if (!current.has_default_prioritized_device() ||
      current.default_prioritized_device().expiration_time() == 0 ||
      current.enable_bridge_mode()) {
    return;
  }
  DeviceConfiguration sent =
      OverTheWire(PrioritizeDefaultDevice(current, now_us));
  CHECK_EQ(sent.prioritized_device().mac_address(),
           current.default_prioritized_device().mac_address());
  // Nothing else changes, not even fields this daemon does not know.
  sent.clear_prioritized_device();
  DeviceConfiguration expected = current;
  expected.clear_prioritized_device();
  CHECK(MessageDifferencer::Equals(sent, expected));
}

}  // namespace
}  // namespace morvane::ap

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  morvane::ap::QuietLogging();
  // The library's own complaints (a string field that is not UTF-8) are
  // only logged; they are no finding.
  google::protobuf::SetLogHandler(nullptr);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace morvane::ap;
  FuzzedDataProvider input(data, size);
  const int64_t now_us = input.ConsumeIntegral<int64_t>();
  const std::string bytes = input.ConsumeRemainingBytesAsString();

  DeviceConfiguration configuration;
  if (configuration.ParseFromString(bytes)) {
    CHECK(
        MessageDifferencer::Equals(OverTheWire(configuration), configuration));
    WriteBack(configuration, now_us);
  }
  RuntimeState state;
  if (state.ParseFromString(bytes)) {
    CHECK(MessageDifferencer::Equals(OverTheWire(state), state));
  }
  return 0;
}
