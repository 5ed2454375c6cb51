#ifndef PLATFORM_LOG_TEXT_H_
#define PLATFORM_LOG_TEXT_H_

#include <cstddef>
#include <string>
#include <string_view>

namespace morvane::ap {

// The most bytes of outside text a log line quotes.
inline constexpr size_t kLogTextMaxBytes = 256;

// Outside text (a caller's string, a peer's value, a file's line, a device's
// name) made safe for a log line: it never ends the line, never starts
// another one, never carries a priority prefix, and is never long.
//
// Printable ASCII and valid UTF-8 stay as they are. '\' becomes "\\",
// newline, carriage return and tab become "\n", "\r" and "\t", and every
// other control character (C0, DEL, C1) and every byte that is not part of
// valid UTF-8 becomes "\xNN". Of a text longer than kLogTextMaxBytes, the
// first kLogTextMaxBytes bytes (never half a character) are kept and
// "...[N bytes cut]" marks the rest.
std::string LogText(std::string_view text);

}  // namespace morvane::ap

#endif  // PLATFORM_LOG_TEXT_H_
