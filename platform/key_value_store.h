#ifndef PLATFORM_KEY_VALUE_STORE_H_
#define PLATFORM_KEY_VALUE_STORE_H_

#include <map>
#include <string>
#include <vector>

#include "platform/error.h"

namespace morvane::ap {

// A map of raw string values loaded from KEY=VALUE text, the format of
// shell-sourceable settings files and of the VPD cache.
//
// The text is split into lines at '\n'; a "\r\n" ends a line as '\n' does.
// A line that is empty or only whitespace, or whose first non-blank
// character is '#', is skipped. Any other line must contain '=' and no NUL
// byte: the key is everything before the first '=' and the value everything
// after it, both exactly as written. Nothing is trimmed or unquoted, so
// `"ps_calibration"="123"` has the key `"ps_calibration"` (with its quotes).
// A key given twice keeps its last value.
class KeyValueStore {
 public:
  KeyValueStore() = default;
  KeyValueStore(const KeyValueStore&) = delete;
  KeyValueStore& operator=(const KeyValueStore&) = delete;

  // Replaces the contents with the pairs read from the file at |path|.
  // Returns false and adds to |error| (domain "ap", code "io_error" if the
  // file cannot be read, "parse_error" naming the path and the first line
  // that cannot be split); the contents are then left as they were.
  bool Load(const std::string& path, ErrorPtr* error);

  // As Load(), but a line that cannot be split is skipped, its 1-based
  // number appended to |*skipped_lines|, and the other lines still count.
  // Fails only when the file cannot be read.
  bool LoadSkippingBadLines(const std::string& path,
                            std::vector<int>* skipped_lines, ErrorPtr* error);

  // As Load(), with the text given directly; a parse error names the line.
  bool LoadFromString(const std::string& text, ErrorPtr* error);

  // Stores the raw value of |key| in |*value|. Returns false, leaving
  // |*value| alone, if the key is absent.
  bool GetString(const std::string& key, std::string* value) const;

 private:
  std::map<std::string, std::string> values_;
};

}  // namespace morvane::ap

#endif  // PLATFORM_KEY_VALUE_STORE_H_
