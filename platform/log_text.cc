#include "platform/log_text.h"

#include <cstdint>
#include <cstdio>

namespace morvane::ap {
namespace {

// The length of the valid UTF-8 sequence at the start of |text|, or 0 when
// it does not start with one (an overlong form, a surrogate, a code point
// above U+10FFFF, a lone continuation byte or a cut sequence).
size_t Utf8SequenceLength(std::string_view text) {
  const auto byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
  const uint8_t lead = byte(0);
  size_t length = 0;
  uint32_t code = 0;
  if (lead >= 0xc2 && lead <= 0xdf) {
    length = 2;
    code = lead & 0x1f;
  } else if (lead >= 0xe0 && lead <= 0xef) {
    length = 3;
    code = lead & 0x0f;
  } else if (lead >= 0xf0 && lead <= 0xf4) {
    length = 4;
    code = lead & 0x07;
  } else {
    return 0;
  }
  if (text.size() < length) return 0;
  for (size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xc0) != 0x80) return 0;
    code = (code << 6) | (byte(i) & 0x3f);
  }
  const bool overlong = (length == 3 && code < 0x800) ||
                        (length == 4 && code < 0x10000);
  const bool surrogate = code >= 0xd800 && code <= 0xdfff;
  if (overlong || surrogate || code > 0x10ffff) return 0;
  return length;
}

void AppendHex(uint8_t byte, std::string* out) {
  char hex[5];
  std::snprintf(hex, sizeof(hex), "\\x%02x", byte);
  out->append(hex, 4);
}

}  // namespace

std::string LogText(std::string_view text) {
  std::string out;
  out.reserve(text.size() < kLogTextMaxBytes ? text.size() : kLogTextMaxBytes);
  size_t i = 0;
  while (i < text.size()) {
    const uint8_t c = static_cast<uint8_t>(text[i]);
    size_t length = 1;
    if (c >= 0x80) length = Utf8SequenceLength(text.substr(i));
    if (i + (length ? length : 1) > kLogTextMaxBytes) break;
    if (c == '\\') {
      out += "\\\\";
    } else if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '\t') {
      out += "\\t";
    } else if (c < 0x20 || c == 0x7f || length == 0) {
      AppendHex(c, &out);
      length = 1;
    } else if (c == 0xc2 && static_cast<uint8_t>(text[i + 1]) < 0xa0) {
      // U+0080..U+009F: the C1 control characters.
      AppendHex(c, &out);
      AppendHex(static_cast<uint8_t>(text[i + 1]), &out);
    } else {
      out.append(text.substr(i, length));
    }
    i += length;
  }
  if (i < text.size()) {
    out += "...[" + std::to_string(text.size() - i) + " bytes cut]";
  }
  return out;
}

}  // namespace morvane::ap
