#include "platform/file_util.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/fixtures/temp_dir.h"

namespace morvane::ap {
namespace {

TEST(FileUtilTest, ReadsWholeFilesByteForByteAndWriteReplacesThem) {
  TempDir dir;
  // Larger than one read, with every byte value including NUL.
  std::string binary;
  for (int i = 0; i < 40'000; ++i) binary.push_back(static_cast<char>(i % 256));
  ASSERT_EQ(WriteFile(dir.Path("clip.raw"), binary.data(),
                      static_cast<int>(binary.size())),
            static_cast<int>(binary.size()));
  std::filesystem::create_symlink(dir.Path("nowhere"), dir.Path("dangling"));
  std::string contents;

  ASSERT_TRUE(ReadFileToString(dir.Path("clip.raw"), &contents));
  EXPECT_EQ(contents, binary);
  EXPECT_EQ(WriteFile(dir.Path("clip.raw"), "123", 3), 3);
  ASSERT_TRUE(ReadFileToString(dir.Path("clip.raw"), &contents));
  EXPECT_EQ(contents, "123");

  // A proc file reports size 0 but has contents.
  ASSERT_TRUE(ReadFileToString("/proc/self/status", &contents));
  EXPECT_THAT(contents, testing::HasSubstr("Pid:"));

  contents = "stale";
  EXPECT_FALSE(ReadFileToString(dir.Path("missing"), &contents));
  EXPECT_EQ(contents, "");
  EXPECT_FALSE(ReadFileToString(dir.path(), &contents));

  // Writing creates no directories.
  EXPECT_EQ(WriteFile(dir.Path("empty"), "", 0), 0);
  EXPECT_EQ(WriteFile(dir.Path("events/value"), "1", 1), -1);
  EXPECT_EQ(WriteFile(dir.path(), "1", 1), -1);
  EXPECT_EQ(WriteFile(dir.Path("negative"), "1", -1), -1);
  // PathExists sees files and directories, not what a dangling link names.
  EXPECT_TRUE(PathExists(dir.Path("empty")));
  EXPECT_TRUE(PathExists(dir.path()));
  EXPECT_FALSE(PathExists(dir.Path("events")));
  EXPECT_FALSE(PathExists(dir.Path("dangling")));
}

TEST(RunCommandTest, ProgramGetsNullStreamsNoBlockedSignalsAndSucceedsOnExitZero) {
  sigset_t block;
  sigset_t old;
  sigemptyset(&block);
  sigaddset(&block, SIGTERM);
  ASSERT_EQ(pthread_sigmask(SIG_BLOCK, &block, &old), 0);
  const struct {
    std::vector<std::string> argv;
    bool result;
  } kCases[] = {
      {{"true"}, true},
      {{"false"}, false},
      {{"sh", "-c", "exit 3"}, false},
      {{"sh", "-c", "kill -TERM $$"}, false},
      {{"no-such-program-for-run-command-test"}, false},
      {{"/no/such/program"}, false},
      {{}, false},
      {{"sh", "-c",
        "for fd in 0 1 2; do "
        "  [ \"$(readlink /proc/$$/fd/$fd)\" = /dev/null ] || exit 1; "
        "done"},
       true},
      // Not through sh: the shell clears its signal mask at start-up.
      {{"grep", "-q", "^SigBlk:[[:space:]]*0*$", "/proc/self/status"}, true},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::PrintToString(c.argv));
    EXPECT_EQ(RunCommand(c.argv), c.result);
  }
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
}

}  // namespace
}  // namespace morvane::ap
