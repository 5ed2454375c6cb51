#include "platform/key_value_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "tests/fixtures/temp_dir.h"

namespace morvane::ap {
namespace {

// The value of |key|, or "<absent>".
std::string Lookup(const KeyValueStore& store, const std::string& key) {
  std::string value = "<absent>";
  store.GetString(key, &value);
  return value;
}

// A load replaces the contents; a failed one leaves them as they were.
TEST(KeyValueStoreTest, KeyIsBeforeTheFirstEqualsAndALineWithoutOneFailsTheLoad) {
  const struct {
    std::string_view text;
    const char* key;
    const char* value;
    const char* error = nullptr;
  } kCases[] = {
      {"NAME=plain\n", "NAME", "plain"},
      {"NAME=a=b\n", "NAME", "a=b"},
      {"NAME=\n", "NAME", ""},
      {"# note\n\nNAME= padded \n", "NAME", " padded "},
      {"NAME=no newline", "NAME", "no newline"},
      {"NAME=dos\r\n", "NAME", "dos"},
      {"NAME=cr\r", "NAME", "cr\r"},
      {"NAME=a\rb\n", "NAME", "a\rb"},
      {"NAME='it'\"'\"'s'\n", "NAME", "'it'\"'\"'s'"},
      {"NAME=1\nNAME=2\n", "NAME", "2"},
      {"\"ps_calibration\"=\"123\"\n", "\"ps_calibration\"", "\"123\""},
      {"  INDENTED=1\n", "  INDENTED", "1"},
      {"SPACED = 1\n", "SPACED ", " 1"},
      {"=nameless\n", "", "nameless"},
      // Blank and comment lines are skipped; '#' later in a line is data.
      {"\n   \n\t\r\n# A=commented\nC=#not a comment\n", "C", "#not a comment"},
      {"# A=commented\n", "# A", "<absent>"},
      {"  #B=indented comment\n", "  #B", "<absent>"},
      {"", "", "<absent>"},
      {"broken", "broken", "<absent>", "Line 1 is not KEY=VALUE"},
      {"NEW=1\nbroken\nNEW2=2\n", "NEW", "<absent>", "Line 2 is not KEY=VALUE"},
      {"NEW=1\n\n# c\n x \n", "NEW", "<absent>", "Line 4 is not KEY=VALUE"},
      {std::string_view("NEW=1\nNUL=a\0b\n", 14), "NEW", "<absent>",
       "Line 2 is not KEY=VALUE"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    KeyValueStore store;
    ASSERT_TRUE(store.LoadFromString("OLD=kept\n", nullptr));
    ErrorPtr error;

    EXPECT_EQ(store.LoadFromString(std::string(c.text), &error), !c.error);

    EXPECT_EQ(Lookup(store, c.key), c.value);
    EXPECT_EQ(Lookup(store, "OLD"), c.error ? "kept" : "<absent>");
    if (c.error) {
      ASSERT_TRUE(error);
      EXPECT_EQ(error->domain(), "ap");
      EXPECT_EQ(error->code(), "parse_error");
      EXPECT_EQ(error->message(), c.error);
    }
  }
}

TEST(KeyValueStoreTest, LoadReplacesTheContentsSkippingBadLinesIfAskedOrKeepsThem) {
  TempDir dir;
  KeyValueStore store;
  ASSERT_TRUE(store.LoadFromString("OLD=1\n", nullptr));
  const std::string bad = dir.Write("bad", "A=1\nno equals here\n");
  ErrorPtr missing_error;
  ErrorPtr parse_error;

  EXPECT_FALSE(store.Load(dir.Path("missing"), &missing_error));
  EXPECT_FALSE(store.Load(bad, &parse_error));

  ASSERT_TRUE(missing_error);
  EXPECT_EQ(missing_error->code(), "io_error");
  EXPECT_THAT(missing_error->message(), testing::HasSubstr(dir.Path("missing")));
  ASSERT_TRUE(parse_error);
  EXPECT_EQ(parse_error->code(), "parse_error");
  EXPECT_EQ(parse_error->message(),
            "Failed to parse " + bad + ": line 2 is not KEY=VALUE");
  EXPECT_EQ(Lookup(store, "OLD"), "1");
  EXPECT_EQ(Lookup(store, "A"), "<absent>");

  ASSERT_TRUE(store.Load(dir.Write("full-v2.txt", "\"plthres\"=\"40\"\n"), nullptr));

  EXPECT_EQ(Lookup(store, "\"plthres\""), "\"40\"");
  EXPECT_EQ(Lookup(store, "OLD"), "<absent>");

  // Skipping bad lines keeps every line that splits.
  const std::string path = dir.Write(
      "settings.sh", std::string("A=1\r\nbroken\nB=x\0y\nC=3\n\n  \nD=4", 29));
  std::vector<int> skipped;

  ASSERT_TRUE(store.LoadSkippingBadLines(path, &skipped, nullptr));
  EXPECT_FALSE(store.LoadSkippingBadLines(dir.Path("missing"), &skipped,
                                          nullptr));

  EXPECT_THAT(skipped, testing::ElementsAre(2, 3));
  EXPECT_EQ(Lookup(store, "A"), "1");
  EXPECT_EQ(Lookup(store, "B"), "<absent>");
  EXPECT_EQ(Lookup(store, "C"), "3");
  EXPECT_EQ(Lookup(store, "D"), "4");
  EXPECT_EQ(Lookup(store, "\"plthres\""), "<absent>");
}

}  // namespace
}  // namespace morvane::ap
