#include "platform/key_value_store.h"

#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

#include "platform/file_util.h"

namespace morvane::ap {
namespace {

constexpr char kDomain[] = "ap";
constexpr char kBlanks[] = " \t\r\v\f";

// Parses |text| into |*values|. A line that cannot be split ends the parse
// when |skipped| is null, and is appended to |*skipped| otherwise. Returns
// 0, or the 1-based number of the line that ended the parse.
int Parse(const std::string& text, std::map<std::string, std::string>* values,
          std::vector<int>* skipped) {
  int line_number = 0;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    ++line_number;
    std::string_view line(text.data() + start, end - start);
    if (end < text.size() && line.ends_with('\r')) line.remove_suffix(1);
    start = end + 1;

    const size_t first = line.find_first_not_of(kBlanks);
    if (first == std::string_view::npos || line[first] == '#') continue;
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos ||
        line.find('\0') != std::string_view::npos) {
      if (!skipped) return line_number;
      skipped->push_back(line_number);
      continue;
    }
    (*values)[std::string(line.substr(0, equals))] =
        std::string(line.substr(equals + 1));
  }
  return 0;
}

}  // namespace

bool KeyValueStore::Load(const std::string& path, ErrorPtr* error) {
  std::string text;
  if (!ReadFileToString(path, &text)) {
    Error::AddToPrintf(error, FROM_HERE, kDomain, "io_error",
                       "Failed to read %s: %s", path.c_str(), strerror(errno));
    return false;
  }
  std::map<std::string, std::string> values;
  if (const int bad_line = Parse(text, &values, nullptr); bad_line != 0) {
    Error::AddToPrintf(error, FROM_HERE, kDomain, "parse_error",
                       "Failed to parse %s: line %d is not KEY=VALUE", path.c_str(),
                       bad_line);
    return false;
  }
  values_ = std::move(values);
  return true;
}

bool KeyValueStore::LoadSkippingBadLines(const std::string& path,
                                         std::vector<int>* skipped_lines,
                                         ErrorPtr* error) {
  std::string text;
  if (!ReadFileToString(path, &text)) {
    Error::AddToPrintf(error, FROM_HERE, kDomain, "io_error",
                       "Failed to read %s: %s", path.c_str(), strerror(errno));
    return false;
  }
  std::map<std::string, std::string> values;
  Parse(text, &values, skipped_lines);
  values_ = std::move(values);
  return true;
}

bool KeyValueStore::LoadFromString(const std::string& text, ErrorPtr* error) {
  std::map<std::string, std::string> values;
  if (const int bad_line = Parse(text, &values, nullptr); bad_line != 0) {
    Error::AddToPrintf(error, FROM_HERE, kDomain, "parse_error",
                       "Line %d is not KEY=VALUE", bad_line);
    return false;
  }
  values_ = std::move(values);
  return true;
}

bool KeyValueStore::GetString(const std::string& key,
                              std::string* value) const {
  const auto it = values_.find(key);
  if (it == values_.end()) return false;
  *value = it->second;
  return true;
}

}  // namespace morvane::ap
