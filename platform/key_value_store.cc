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

// Parses |text| into |*values|. Returns 0, or the 1-based number of the
// first line that has no '='.
int Parse(const std::string& text, std::map<std::string, std::string>* values) {
  int line_number = 0;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    ++line_number;
    const std::string_view line(text.data() + start, end - start);
    start = end + 1;

    const size_t first = line.find_first_not_of(kBlanks);
    if (first == std::string_view::npos || line[first] == '#') continue;
    const size_t equals = line.find('=');
    if (equals == std::string_view::npos) return line_number;
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
  if (const int bad_line = Parse(text, &values); bad_line != 0) {
    Error::AddToPrintf(error, FROM_HERE, kDomain, "parse_error",
                       "Failed to parse %s: line %d has no '='", path.c_str(),
                       bad_line);
    return false;
  }
  values_ = std::move(values);
  return true;
}

bool KeyValueStore::LoadFromString(const std::string& text, ErrorPtr* error) {
  std::map<std::string, std::string> values;
  if (const int bad_line = Parse(text, &values); bad_line != 0) {
    Error::AddToPrintf(error, FROM_HERE, kDomain, "parse_error",
                       "Line %d has no '='", bad_line);
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
