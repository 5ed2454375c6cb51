// The settings files: arbitrary text loaded by KeyValueStore, from a string
// and from a file, and read through every question PlatformSettings
// answers for the daemon.

#include <glog/logging.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "common/platform_settings.h"
#include "fuzz/fuzz_support.h"
#include "platform/key_value_store.h"

namespace morvane::ap {
namespace {

// The keys of the first lines that have a '='.
constexpr int kKeysChecked = 16;

void CheckKeysResolve(std::string_view text, const KeyValueStore& a,
                      const KeyValueStore& b,
                      const PlatformSettings& settings) {
  int checked = 0;
  for (size_t start = 0; start < text.size() && checked < kKeysChecked;) {
    size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    const std::string_view line = text.substr(start, end - start);
    start = end + 1;
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos) continue;
    ++checked;
    const std::string key(line.substr(0, equals));
    std::string from_a, from_b;
    // A comment line with '=' stores nothing; both loads must agree on it.
    CHECK_EQ(a.GetString(key, &from_a), b.GetString(key, &from_b)) << key;
    CHECK_EQ(from_a, from_b) << key;
    std::string unquoted;
    if (settings.GetQuotedString(key, &unquoted)) {
      CHECK_LE(unquoted.size() + 2, from_a.size()) << key;
    }
    bool flag = false;
    settings.GetBooleanFlag(key, &flag);
  }
}

}  // namespace
}  // namespace morvane::ap

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  morvane::ap::QuietLogging();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace morvane::ap;
  const std::string text(reinterpret_cast<const char*>(data), size);

  KeyValueStore from_string;
  CHECK(from_string.LoadFromString("KEPT=1\n", nullptr));
  ErrorPtr error;
  const bool loaded = from_string.LoadFromString(text, &error);
  CHECK_EQ(loaded, error == nullptr);
  if (!loaded) {
    // A failed load leaves the store as it was.
    std::string kept;
    CHECK(from_string.GetString("KEPT", &kept) && kept == "1");
  }

  const MemoryFile file(data, size);
  KeyValueStore from_file;
  CHECK_EQ(from_file.Load(file.path(), nullptr), loaded);
  // Skipping bad lines never fails on a readable file, and skips a line
  // exactly when the whole load fails.
  KeyValueStore skipping;
  std::vector<int> skipped;
  CHECK(skipping.LoadSkippingBadLines(file.path(), &skipped, nullptr));
  CHECK_EQ(skipped.empty(), loaded);
  const PlatformSettings settings(file.path());
  settings.HasAuxiliaryRadio();
  settings.HasNssSupport();
  std::string model;
  settings.GetSetupSsidModel(&model);
  settings.GetTouchInputEventPath();
  if (loaded) CheckKeysResolve(text, from_string, from_file, settings);
  return 0;
}
