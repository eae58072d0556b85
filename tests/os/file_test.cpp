#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "support/sandbox.h"
#include "tarn/os.h"

using namespace tarn_test;

namespace {

class OsFile : public testing::Test {
 protected:
  std::string path(const char *name) const { return sandbox_.root() + '/' + name; }

  void write_file(const char *name, const std::string &bytes) const {
    std::ofstream(path(name), std::ios::binary) << bytes;
  }
  std::string read_file(const char *name) const {
    std::ifstream file(path(name), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  Sandbox sandbox_;
};

}  // namespace

TEST_F(OsFile, OpensWithFlagsAndModeAsGiven) {
  umask(0);
  const long file = OS_FILE_OPEN(path("new").c_str(), O_CREAT | O_EXCL | O_WRONLY, 0640);
  ASSERT_GE(file, 0);
  EXPECT_EQ(OS_FILE_WRITE(static_cast<int>(file), "hello", 5), 5);
  EXPECT_EQ(OS_FILE_CLOSE(static_cast<int>(file)), 0);
  struct stat status {};
  ASSERT_EQ(stat(path("new").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
  EXPECT_EQ(read_file("new"), "hello");
  EXPECT_EQ(OS_FILE_OPEN(path("new").c_str(), O_CREAT | O_EXCL | O_WRONLY, 0640), -1);
}

TEST_F(OsFile, ReadsUntilTheEnd) {
  write_file("data", "abcdef");
  const int file = static_cast<int>(OS_FILE_OPEN(path("data").c_str(), O_RDONLY, 0));
  char buffer[8] = {};
  EXPECT_EQ(OS_FILE_READ(file, buffer, 4), 4);
  EXPECT_STREQ(buffer, "abcd");
  EXPECT_EQ(OS_FILE_READ(file, buffer, 8), 2);
  EXPECT_EQ(OS_FILE_READ(file, buffer, 8), 0);
  OS_FILE_CLOSE(file);
}

TEST_F(OsFile, NegativeLengthsAreRejectedByTheSystem) {
  write_file("data", "abcdef");
  const int file = static_cast<int>(OS_FILE_OPEN(path("data").c_str(), O_RDWR, 0));
  char buffer[8] = "before";
  EXPECT_EQ(OS_FILE_READ(file, buffer, -1), -1);
  EXPECT_STREQ(buffer, "before");
  EXPECT_EQ(OS_FILE_WRITE(file, buffer, -1), -1);
  EXPECT_EQ(OS_FILE_WRITE(file, buffer, INT32_MIN), -1);
  OS_FILE_CLOSE(file);
  EXPECT_EQ(read_file("data"), "abcdef");
}

TEST_F(OsFile, FailuresAreTheSystems) {
  char byte = 0;
  EXPECT_EQ(OS_FILE_OPEN(path("missing").c_str(), O_RDONLY, 0), -1);
  EXPECT_EQ(OS_FILE_CLOSE(-1), -1);
  EXPECT_EQ(OS_FILE_READ(-1, &byte, 1), -1);
  EXPECT_EQ(OS_FILE_WRITE(-1, &byte, 1), -1);
}

TEST_F(OsFile, SizeLeavesTheStreamAtItsStart) {
  write_file("data", "0123456789");
  FILE *stream = fopen(path("data").c_str(), "r");
  char buffer[4];
  ASSERT_EQ(fread(buffer, 1, sizeof buffer, stream), 4u);
  EXPECT_EQ(OS_FILE_SIZE(stream), 10);
  EXPECT_EQ(ftell(stream), 0);
  fclose(stream);
}

TEST_F(OsFile, SizeIsCutTo32Bits) {
  struct Row {
    uintmax_t bytes;
    long size;
  };
  constexpr Row kRows[] = {{2147483647, 2147483647}, {2147483648, -2147483648}, {4294967295, -1}, {4294967301, 5}};
  for (const Row &row : kRows) {
    write_file("sparse", "");
    std::filesystem::resize_file(path("sparse"), row.bytes);
    FILE *stream = fopen(path("sparse").c_str(), "r");
    EXPECT_EQ(OS_FILE_SIZE(stream), row.size) << row.bytes;
    fclose(stream);
  }
}

TEST_F(OsFile, SizeOfAPipeIsAnError) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  FILE *stream = fdopen(ends[0], "r");
  EXPECT_EQ(OS_FILE_SIZE(stream), -1);
  fclose(stream);
  close(ends[1]);
}

TEST_F(OsFile, CopiesEveryByteDestinationFirst) {
  std::string bytes;
  for (int i = 0; i < 70000; i++) bytes += static_cast<char>(i * 7);  // 0x00 and 0xFF among them
  write_file("source", bytes);
  write_file("destination", std::string(100000, 'x'));  // is truncated
  EXPECT_EQ(OS_FILE_CP(path("destination").c_str(), path("source").c_str()), 0);
  EXPECT_EQ(read_file("destination"), bytes);
  EXPECT_EQ(read_file("source"), bytes);
}

TEST_F(OsFile, CopiesAnEmptyFile) {
  write_file("source", "");
  EXPECT_EQ(OS_FILE_CP(path("destination").c_str(), path("source").c_str()), 0);
  EXPECT_TRUE(std::filesystem::exists(path("destination")));
  EXPECT_EQ(read_file("destination"), "");
}

TEST_F(OsFile, CopyOfAMissingSourceMakesNoDestination) {
  EXPECT_EQ(OS_FILE_CP(path("destination").c_str(), path("missing").c_str()), -1);
  EXPECT_FALSE(std::filesystem::exists(path("destination")));
}

TEST_F(OsFile, CopyFailsWithoutADestinationFolder) {
  write_file("source", "x");
  EXPECT_EQ(OS_FILE_CP(path("none/destination").c_str(), path("source").c_str()), -1);
}

TEST_F(OsFile, CopyFailsForNullPaths) {
  write_file("source", "x");
  EXPECT_EQ(OS_FILE_CP(nullptr, path("source").c_str()), -1);
  EXPECT_EQ(OS_FILE_CP(path("destination").c_str(), nullptr), -1);
  EXPECT_FALSE(std::filesystem::exists(path("destination")));
}

TEST_F(OsFile, CopyEndsAtAReadError) {
  std::filesystem::create_directory(path("folder"));  // opens for reading, and then fails to be read
  EXPECT_EQ(OS_FILE_CP(path("destination").c_str(), path("folder").c_str()), 0);
  EXPECT_EQ(read_file("destination"), "");
}

TEST_F(OsFile, CopyDoesNotDetectWriteErrors) {
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "this system has no /dev/full";
  write_file("source", "x");
  EXPECT_EQ(OS_FILE_CP("/dev/full", path("source").c_str()), 0);
}

TEST_F(OsFile, CopyClosesItsFiles) {
  write_file("source", "x");
  const int before = dup(0);
  close(before);
  OS_FILE_CP(path("destination").c_str(), path("source").c_str());
  OS_FILE_CP(path("none/destination").c_str(), path("source").c_str());
  OS_FILE_CP(path("destination").c_str(), path("missing").c_str());
  const int after = dup(0);
  close(after);
  EXPECT_EQ(before, after);  // the lowest free descriptor is the same
}
