#include "platform/log_text.h"

#include <gtest/gtest.h>

#include <string>

namespace morvane::ap {
namespace {

TEST(LogTextTest, EscapesWhatCouldEndOrForgeALineAndCapsLongTextWithAMark) {
  const struct {
    std::string text;
    std::string logged;
  } kCases[] = {
      {"vox", "vox"},
      {"a\n<0>forged", "a\\n<0>forged"},
      {"cr\r tab\t back\\slash", "cr\\r tab\\t back\\\\slash"},
      {std::string("nul\0esc\x1b[2J del\x7f", 16), "nul\\x00esc\\x1b[2J del\\x7f"},
      {"caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x92\xa1", "caf\xc3\xa9 \xe2\x82\xac \xf0\x9f\x92\xa1"},
      {"c1 \xc2\x80 \xc2\x9f nbsp \xc2\xa0", "c1 \\xc2\\x80 \\xc2\\x9f nbsp \xc2\xa0"},
      {"lone \x80 cut \xe2\x82", "lone \\x80 cut \\xe2\\x82"},
      {"overlong \xc0\xaf \xe0\x80\xaf", "overlong \\xc0\\xaf \\xe0\\x80\\xaf"},
      {"surrogate \xed\xa0\x80 beyond \xf4\x90\x80\x80",
       "surrogate \\xed\\xa0\\x80 beyond \\xf4\\x90\\x80\\x80"},
      // Long text is cut at a character boundary, with a mark.
      {std::string(kLogTextMaxBytes, 'x'), std::string(kLogTextMaxBytes, 'x')},
      {std::string(kLogTextMaxBytes + 1, 'x'),
       std::string(kLogTextMaxBytes, 'x') + "...[1 bytes cut]"},
      {std::string(kLogTextMaxBytes - 1, 'x') + "\xe2\x82\xac",
       std::string(kLogTextMaxBytes - 1, 'x') + "...[3 bytes cut]"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.logged);
    EXPECT_EQ(LogText(c.text), c.logged);
  }
  EXPECT_EQ(LogText(std::string(1 << 20, '\n')).size(),
            2 * kLogTextMaxBytes + std::string("...[1048320 bytes cut]").size());
}

}  // namespace
}  // namespace morvane::ap
