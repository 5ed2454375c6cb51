#ifndef COMMON_PLATFORM_SETTINGS_H_
#define COMMON_PLATFORM_SETTINGS_H_

#include <string>

#include "platform/key_value_store.h"

namespace morvane::ap {

// Typed answers from the hardware model's settings file, a shell-sourceable
// list of KEY=VALUE lines provided by the system image. Values are kept raw;
// strings are written as shell single-quoted words and flags as a bare 1 or
// 0. Every getter reports an absent or malformed value through its result.
// Loading logs what it could not use: an unreadable file once, with its path
// and the system's reason, and each line that is not KEY=VALUE (no '=', or
// a NUL byte) with its number; the other lines still count. CRLF line
// endings read as LF.
class PlatformSettings {
 public:
  // The file of the running system, under AVD_SYSROOT when that is set.
  static constexpr char kPlatformSettingsPath[] =
      "/usr/share/ap/platform-settings.sh";

  // Loads kPlatformSettingsPath. A missing or unreadable file gives no
  // settings: every getter then answers as for an absent key.
  PlatformSettings();
  // As above, from the file at |path|.
  explicit PlatformSettings(const std::string& path);
  PlatformSettings(const PlatformSettings&) = delete;
  PlatformSettings& operator=(const PlatformSettings&) = delete;

  // Unquotes the value of |key| into |*out|: it must start and end with a
  // single quote, and each '"'"' inside stands for one single quote. Returns
  // false, leaving |*out| alone, for an absent key or an unquoted value.
  bool GetQuotedString(const std::string& key, std::string* out) const;

  // A value of exactly "1" is true and "0" false; anything else (quoted,
  // padded, "yes") returns false and leaves |*out| alone.
  bool GetBooleanFlag(const std::string& key, bool* out) const;

  // The flag PLATFORM_HAS_<name>; false when absent or malformed.
  bool HasFeature(const std::string& name) const;
  bool HasAuxiliaryRadio() const;
  bool HasNssSupport() const;

  // The evdev device of the touch button; empty when not set.
  std::string GetTouchInputEventPath() const;

  // The model word of the setup network's name; false when not set.
  bool GetSetupSsidModel(std::string* out) const;

 private:
  KeyValueStore store_;
};

}  // namespace morvane::ap

#endif  // COMMON_PLATFORM_SETTINGS_H_
