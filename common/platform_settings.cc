#include "common/platform_settings.h"

#include <glog/logging.h>

#include <vector>

#include "platform/log_text.h"
#include "platform/sysroot.h"

namespace morvane::ap {
namespace {

// How a writer that quotes every value spells a single quote inside one:
// close the quote, a double-quoted quote, open again.
constexpr char kEscapedQuote[] = "'\"'\"'";

}  // namespace

PlatformSettings::PlatformSettings()
    : PlatformSettings(SysrootPath(kPlatformSettingsPath)) {}

PlatformSettings::PlatformSettings(const std::string& path) {
  // A missing file means a model without settings: all getters say "absent".
  // A bad line costs only itself: the touch device named on another line
  // still works.
  std::vector<int> skipped;
  ErrorPtr error;
  if (!store_.LoadSkippingBadLines(path, &skipped, &error)) {
    LOG(WARNING) << LogText(error->message()) << "; no platform settings";
    return;
  }
  for (const int line : skipped) {
    LOG(WARNING) << "Failed to read line " << line << " of " << LogText(path)
                 << ": not KEY=VALUE, skipping it";
  }
}

bool PlatformSettings::GetQuotedString(const std::string& key,
                                       std::string* out) const {
  std::string value;
  if (!store_.GetString(key, &value)) return false;
  if (value.size() < 2 || value.front() != '\'' || value.back() != '\'') {
    return false;
  }
  const std::string escaped = kEscapedQuote;
  for (size_t at = value.find(escaped, 1); at != std::string::npos;
       at = value.find(escaped, at + 1)) {
    value.replace(at, escaped.size(), 1, '\'');
  }
  *out = value.substr(1, value.size() - 2);
  return true;
}

bool PlatformSettings::GetBooleanFlag(const std::string& key,
                                      bool* out) const {
  std::string value;
  if (!store_.GetString(key, &value) || (value != "1" && value != "0")) {
    return false;
  }
  *out = value == "1";
  return true;
}

bool PlatformSettings::HasFeature(const std::string& name) const {
  bool value = false;
  GetBooleanFlag("PLATFORM_HAS_" + name, &value);
  return value;
}

bool PlatformSettings::HasAuxiliaryRadio() const {
  return HasFeature("AUXILIARY_RADIO");
}

bool PlatformSettings::HasNssSupport() const {
  return HasFeature("NSS_SUPPORT");
}

std::string PlatformSettings::GetTouchInputEventPath() const {
  std::string path;
  GetQuotedString("PLATFORM_TOUCH_INPUT_EVENT_PATH", &path);
  return path;
}

bool PlatformSettings::GetSetupSsidModel(std::string* out) const {
  return GetQuotedString("PLATFORM_SETUP_SSID_MODEL", out);
}

}  // namespace morvane::ap
