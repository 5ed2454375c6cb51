#include "platform/key_value_store.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <string>

#include "platform/file_util.h"

namespace morvane::ap {
namespace {

using ::testing::HasSubstr;

// The value of |key|, or "<absent>".
std::string Lookup(const KeyValueStore& store, const std::string& key) {
  std::string value = "<absent>";
  store.GetString(key, &value);
  return value;
}

TEST(KeyValueStoreTest, ValueIsEverythingAfterTheFirstEquals) {
  const struct {
    const char* text;
    const char* value;
  } kCases[] = {
      {"NAME=plain\n", "plain"},
      {"NAME=a=b\n", "a=b"},
      {"NAME=\n", ""},
      {"# note\n\nNAME= padded \n", " padded "},
      {"NAME=no newline", "no newline"},
      {"NAME=dos\r\n", "dos\r"},
      {"NAME='it'\"'\"'s'\n", "'it'\"'\"'s'"},
      {"NAME=1\nNAME=2\n", "2"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    KeyValueStore store;

    ASSERT_TRUE(store.LoadFromString(c.text, nullptr));

    EXPECT_EQ(Lookup(store, "NAME"), c.value);
  }
}

TEST(KeyValueStoreTest, KeyIsEverythingBeforeTheFirstEqualsAsWritten) {
  const struct {
    const char* text;
    const char* key;
    const char* value;
  } kCases[] = {
      {"\"ps_calibration\"=\"123\"\n", "\"ps_calibration\"", "\"123\""},
      {"  INDENTED=1\n", "  INDENTED", "1"},
      {"SPACED = 1\n", "SPACED ", " 1"},
      {"=nameless\n", "", "nameless"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    KeyValueStore store;

    ASSERT_TRUE(store.LoadFromString(c.text, nullptr));

    EXPECT_EQ(Lookup(store, c.key), c.value);
  }
}

TEST(KeyValueStoreTest, SkipsBlankAndCommentLines) {
  KeyValueStore store;

  ASSERT_TRUE(store.LoadFromString(
      "\n   \n\t\r\n# A=commented\n  #B=indented comment\nC=#not a comment\n",
      nullptr));

  EXPECT_EQ(Lookup(store, "# A"), "<absent>");
  EXPECT_EQ(Lookup(store, "  #B"), "<absent>");
  EXPECT_EQ(Lookup(store, "C"), "#not a comment");
  EXPECT_TRUE(store.LoadFromString("", nullptr));
}

TEST(KeyValueStoreTest, LineWithoutEqualsFailsTheWholeLoad) {
  const struct {
    const char* text;
    const char* message;
  } kCases[] = {
      {"broken", "Line 1 has no '='"},
      {"NEW=1\nbroken\nNEW2=2\n", "Line 2 has no '='"},
      {"NEW=1\n\n# c\n x \n", "Line 4 has no '='"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    KeyValueStore store;
    ASSERT_TRUE(store.LoadFromString("OLD=kept\n", nullptr));
    ErrorPtr error;

    EXPECT_FALSE(store.LoadFromString(c.text, &error));

    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain(), "ap");
    EXPECT_EQ(error->code(), "parse_error");
    EXPECT_EQ(error->message(), c.message);
    EXPECT_EQ(Lookup(store, "NEW"), "<absent>");
    EXPECT_EQ(Lookup(store, "OLD"), "kept");
  }
}

class KeyValueStoreFileTest : public testing::Test {
 protected:
  void SetUp() override {
    char dir_template[] = "/tmp/key_value_store_test.XXXXXX";
    ASSERT_NE(mkdtemp(dir_template), nullptr);
    dir_ = dir_template;
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  std::string WriteFileWith(const std::string& name, const std::string& text) {
    const std::string path = dir_ + "/" + name;
    EXPECT_EQ(WriteFile(path, text.data(), static_cast<int>(text.size())),
              static_cast<int>(text.size()));
    return path;
  }

  std::string dir_;
  KeyValueStore store_;
};

TEST_F(KeyValueStoreFileTest, LoadReplacesTheContents) {
  ASSERT_TRUE(store_.LoadFromString("OLD=1\n", nullptr));
  const std::string path =
      WriteFileWith("full-v2.txt", "\"plthres\"=\"40\"\n\"phthres\"=\"90\"\n");

  ASSERT_TRUE(store_.Load(path, nullptr));

  EXPECT_EQ(Lookup(store_, "\"plthres\""), "\"40\"");
  EXPECT_EQ(Lookup(store_, "\"phthres\""), "\"90\"");
  EXPECT_EQ(Lookup(store_, "OLD"), "<absent>");
}

TEST_F(KeyValueStoreFileTest, LoadFailureNamesTheFileAndKeepsTheContents) {
  ASSERT_TRUE(store_.LoadFromString("OLD=1\n", nullptr));
  const std::string bad = WriteFileWith("bad", "A=1\nno equals here\n");
  ErrorPtr missing_error;
  ErrorPtr parse_error;

  EXPECT_FALSE(store_.Load(dir_ + "/missing", &missing_error));
  EXPECT_FALSE(store_.Load(bad, &parse_error));

  ASSERT_TRUE(missing_error);
  EXPECT_EQ(missing_error->code(), "io_error");
  EXPECT_THAT(missing_error->message(), HasSubstr(dir_ + "/missing"));
  ASSERT_TRUE(parse_error);
  EXPECT_EQ(parse_error->code(), "parse_error");
  EXPECT_EQ(parse_error->message(),
            "Failed to parse " + bad + ": line 2 has no '='");
  EXPECT_EQ(Lookup(store_, "OLD"), "1");
  EXPECT_EQ(Lookup(store_, "A"), "<absent>");
}

}  // namespace
}  // namespace morvane::ap
