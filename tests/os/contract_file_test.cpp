// Files by descriptor, the size of a stream's file, and the copy.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <type_traits>

#include "support/console.h"
#include "support/sandbox.h"
#include "tarn/os.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&OS_FILE_OPEN), long (*)(const char *, int, mode_t)>);
static_assert(std::is_same_v<decltype(&OS_FILE_CLOSE), long (*)(int)>);
static_assert(std::is_same_v<decltype(&OS_FILE_READ), long (*)(int, void *, int)>);
static_assert(std::is_same_v<decltype(&OS_FILE_WRITE), long (*)(int, const void *, int)>);
static_assert(std::is_same_v<decltype(&OS_FILE_SIZE), long (*)(FILE *)>);
static_assert(std::is_same_v<decltype(&OS_FILE_CP), long (*)(const char *, const char *)>);

namespace {

struct CloseStream {
  void operator()(FILE *stream) const { fclose(stream); }
};
using Stream = std::unique_ptr<FILE, CloseStream>;

class FileContract : public testing::Test {
 protected:
  std::string path(const char *name) const { return sandbox_.root() + '/' + name; }
  std::string make(const char *name, const std::string &content) const {
    std::ofstream(path(name), std::ios::binary) << content;
    return path(name);
  }
  static std::string content(const std::string &file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  static size_t open_descriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(all), end(all)));
  }

  Sandbox sandbox_;
};

using FileOpenContract = FileContract;
using FileReadContract = FileContract;
using FileWriteContract = FileContract;
using FileSizeContract = FileContract;
using FileCopyContract = FileContract;

}  // namespace

TEST_F(FileOpenContract, PassesFlagsAndModeOn) {
  const std::string file = path("new");
  const mode_t umask_before = umask(0);
  const long first = OS_FILE_OPEN(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0641);
  umask(umask_before);
  ASSERT_GE(first, 0);
  struct stat status = {};
  ASSERT_EQ(fstat(static_cast<int>(first), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0641u);
  EXPECT_EQ(fcntl(static_cast<int>(first), F_GETFL) & O_ACCMODE, O_WRONLY);
  EXPECT_EQ(fcntl(static_cast<int>(first), F_GETFD), FD_CLOEXEC);
  errno = 0;
  EXPECT_EQ(OS_FILE_OPEN(file.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0641), -1);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(OS_FILE_CLOSE(static_cast<int>(first)), 0);
}

TEST_F(FileOpenContract, AddsNoFlagOfItsOwn) {
  const std::string file = make("kept", "0123456789");
  const long plain = OS_FILE_OPEN(file.c_str(), O_WRONLY, 0);
  ASSERT_GE(plain, 0);
  EXPECT_EQ(OS_FILE_WRITE(static_cast<int>(plain), "ab", 2), 2);
  EXPECT_EQ(OS_FILE_CLOSE(static_cast<int>(plain)), 0);
  EXPECT_EQ(content(file), "ab23456789");
  const long append = OS_FILE_OPEN(file.c_str(), O_WRONLY | O_APPEND, 0);
  ASSERT_GE(append, 0);
  EXPECT_EQ(fcntl(static_cast<int>(append), F_GETFD), 0);
  EXPECT_EQ(OS_FILE_WRITE(static_cast<int>(append), "X", 1), 1);
  EXPECT_EQ(OS_FILE_CLOSE(static_cast<int>(append)), 0);
  EXPECT_EQ(content(file), "ab23456789X");
}

TEST_F(FileOpenContract, FailsWithMinusOneAndTheSystemsError) {
  Console console;
  errno = 0;
  EXPECT_EQ(OS_FILE_OPEN(path("missing").c_str(), O_RDONLY, 0), -1);
  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(console.take(), "");
}

TEST_F(FileOpenContract, CloseGivesTheSystemsResult) {
  const long file = OS_FILE_OPEN(make("some", "").c_str(), O_RDONLY, 0);
  ASSERT_GE(file, 0);
  EXPECT_EQ(OS_FILE_CLOSE(static_cast<int>(file)), 0);
  EXPECT_EQ(fcntl(static_cast<int>(file), F_GETFD), -1);
  errno = 0;
  EXPECT_EQ(OS_FILE_CLOSE(static_cast<int>(file)), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(OS_FILE_CLOSE(-1), -1);
}

TEST_F(FileReadContract, GivesTheCountUpToTheEndOfTheFile) {
  const int file = static_cast<int>(OS_FILE_OPEN(make("ten", "0123456789").c_str(), O_RDONLY, 0));
  char buffer[16] = {};
  EXPECT_EQ(OS_FILE_READ(file, buffer, 4), 4);
  EXPECT_EQ(std::string(buffer, 5), std::string("0123\0", 5));
  EXPECT_EQ(OS_FILE_READ(file, buffer, 0), 0);
  EXPECT_EQ(OS_FILE_READ(file, buffer, 16), 6);
  EXPECT_EQ(std::string(buffer, 6), "456789");
  EXPECT_EQ(OS_FILE_READ(file, buffer, 16), 0);
  OS_FILE_CLOSE(file);
}

// Widened with its sign, a negative length is far more than any file; taken as 32 bits it would read the ten bytes.
TEST_F(FileReadContract, ANegativeLengthIsAnImpossibleRequest) {
  Console console;
  const int file = static_cast<int>(OS_FILE_OPEN(make("ten", "0123456789").c_str(), O_RDONLY, 0));
  for (const int length : {-1, -16, INT_MIN}) {
    SCOPED_TRACE(length);
    char buffer[16] = "untouched";
    errno = 0;
    EXPECT_EQ(OS_FILE_READ(file, buffer, length), -1);
    EXPECT_TRUE(errno == EINVAL || errno == EFAULT) << errno;
    EXPECT_STREQ(buffer, "untouched");
    EXPECT_EQ(lseek(file, 0, SEEK_CUR), 0);
  }
  OS_FILE_CLOSE(file);
  EXPECT_EQ(console.take(), "");
}

TEST_F(FileReadContract, FailsAsTheSystemDoes) {
  char buffer[4];
  errno = 0;
  EXPECT_EQ(OS_FILE_READ(-1, buffer, 4), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST_F(FileWriteContract, GivesTheCount) {
  const std::string name = path("out");
  const int file = static_cast<int>(OS_FILE_OPEN(name.c_str(), O_WRONLY | O_CREAT, 0600));
  EXPECT_EQ(OS_FILE_WRITE(file, "abc\0def", 7), 7);
  EXPECT_EQ(OS_FILE_WRITE(file, "ghi", 0), 0);
  OS_FILE_CLOSE(file);
  EXPECT_EQ(content(name), std::string("abc\0def", 7));
}

TEST_F(FileWriteContract, ANegativeLengthIsAnImpossibleRequest) {
  const std::string name = path("out");
  const int file = static_cast<int>(OS_FILE_OPEN(name.c_str(), O_WRONLY | O_CREAT, 0600));
  for (const int length : {-1, INT_MIN}) {
    SCOPED_TRACE(length);
    errno = 0;
    EXPECT_EQ(OS_FILE_WRITE(file, "abc", length), -1);
    EXPECT_TRUE(errno == EINVAL || errno == EFAULT) << errno;
  }
  OS_FILE_CLOSE(file);
  EXPECT_EQ(content(name), "");
}

TEST_F(FileWriteContract, FailsAsTheSystemDoes) {
  const int file = static_cast<int>(OS_FILE_OPEN(make("in", "x").c_str(), O_RDONLY, 0));
  errno = 0;
  EXPECT_EQ(OS_FILE_WRITE(file, "abc", 3), -1);
  EXPECT_EQ(errno, EBADF);
  OS_FILE_CLOSE(file);
}

TEST_F(FileSizeContract, MeasuresAndRewindsFromAnyPosition) {
  const std::string file = make("ten", "0123456789");
  for (const int position : {0, 4, 10, 25}) {
    SCOPED_TRACE(position);
    const Stream stream(fopen(file.c_str(), "r"));
    ASSERT_EQ(fseek(stream.get(), position, SEEK_SET), 0);
    EXPECT_EQ(OS_FILE_SIZE(stream.get()), 10);
    EXPECT_EQ(ftell(stream.get()), 0);
    EXPECT_EQ(fgetc(stream.get()), '0');
  }
}

TEST_F(FileSizeContract, RewindsAStreamThatWasReadUpToByteFour) {
  const Stream stream(fopen(make("ten", "0123456789").c_str(), "r"));
  char head[4];
  ASSERT_EQ(fread(head, 1, 4, stream.get()), 4u);
  EXPECT_EQ(OS_FILE_SIZE(stream.get()), 10);
  EXPECT_EQ(ftell(stream.get()), 0);
}

TEST_F(FileSizeContract, AnEmptyFileHasNone) {
  const Stream stream(fopen(make("empty", "").c_str(), "r"));
  EXPECT_EQ(fgetc(stream.get()), EOF);
  EXPECT_EQ(OS_FILE_SIZE(stream.get()), 0);
}

TEST_F(FileSizeContract, CountsWhatTheStreamStillHolds) {
  const Stream stream(fopen(path("held").c_str(), "w+"));
  fputs("held back", stream.get());
  EXPECT_EQ(OS_FILE_SIZE(stream.get()), 9);
  EXPECT_EQ(fgetc(stream.get()), 'h');
}

TEST_F(FileSizeContract, IsCutToASigned32BitValue) {
  const struct {
    off_t size;
    long reported;
  } kRows[] = {
      {2147483647, 2147483647}, {2147483648, -2147483648}, {3221225472, -1073741824},
      {4294967295, -1},         {4294967296, 0},           {4294967301, 5},
  };
  const Stream stream(fopen(path("sparse").c_str(), "w+"));
  for (const auto &row : kRows) {
    SCOPED_TRACE(row.size);
    if (ftruncate(fileno(stream.get()), row.size) != 0) GTEST_SKIP() << "no sparse files here";
    EXPECT_EQ(OS_FILE_SIZE(stream.get()), row.reported);
    EXPECT_EQ(ftell(stream.get()), 0);
  }
}

TEST_F(FileSizeContract, AStreamWithoutPositionsGivesMinusOne) {
  Console console;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[1]);
  const Stream stream(fdopen(ends[0], "r"));
  EXPECT_EQ(OS_FILE_SIZE(stream.get()), -1);
  EXPECT_EQ(console.take(), "");
}

TEST_F(FileCopyContract, CopiesEveryByteToTheFirstArgument) {
  std::string bytes;
  for (int i = 0; i < 10000; i++) bytes += static_cast<char>(i * 7 % 256);  // 0xFF, NUL and line ends among them
  const std::string source = make("source", bytes);
  const std::string destination = path("destination");
  EXPECT_EQ(OS_FILE_CP(destination.c_str(), source.c_str()), 0);
  EXPECT_EQ(content(destination), bytes);
  EXPECT_EQ(content(source), bytes);
}

TEST_F(FileCopyContract, TruncatesALongerDestination) {
  const std::string source = make("source", "short");
  const std::string destination = make("destination", "much longer than that");
  EXPECT_EQ(OS_FILE_CP(destination.c_str(), source.c_str()), 0);
  EXPECT_EQ(content(destination), "short");
}

TEST_F(FileCopyContract, AnEmptySourceMakesAnEmptyDestination) {
  const std::string source = make("source", "");
  const std::string destination = path("destination");
  EXPECT_EQ(OS_FILE_CP(destination.c_str(), source.c_str()), 0);
  ASSERT_TRUE(std::filesystem::exists(destination));
  EXPECT_EQ(content(destination), "");
}

TEST_F(FileCopyContract, RefusesNullAndOpensNothing) {
  Console console;
  const std::string file = make("file", "kept");
  EXPECT_EQ(OS_FILE_CP(nullptr, file.c_str()), -1);
  EXPECT_EQ(OS_FILE_CP(file.c_str(), nullptr), -1);
  EXPECT_EQ(OS_FILE_CP(nullptr, nullptr), -1);
  EXPECT_EQ(content(file), "kept");
  EXPECT_EQ(console.take(), "");
}

TEST_F(FileCopyContract, AMissingSourceLeavesTheDestinationAlone) {
  Console console;
  EXPECT_EQ(OS_FILE_CP(path("destination").c_str(), path("missing").c_str()), -1);
  EXPECT_FALSE(std::filesystem::exists(path("destination")));
  const std::string existing = make("existing", "kept");
  EXPECT_EQ(OS_FILE_CP(existing.c_str(), path("missing").c_str()), -1);
  EXPECT_EQ(content(existing), "kept");
  EXPECT_EQ(console.take(), "");
}

TEST_F(FileCopyContract, FailsWhenTheDestinationCannotBeOpened) {
  Console console;
  const std::string source = make("source", "some");
  EXPECT_EQ(OS_FILE_CP(path("no-folder/destination").c_str(), source.c_str()), -1);
  EXPECT_EQ(content(source), "some");
  EXPECT_EQ(console.take(), "");
}

TEST_F(FileCopyContract, ClosesWhatItOpened) {
  const std::string source = make("source", "some");
  const size_t before = open_descriptors();
  EXPECT_EQ(OS_FILE_CP(path("destination").c_str(), source.c_str()), 0);
  EXPECT_EQ(open_descriptors(), before);
  EXPECT_EQ(OS_FILE_CP(path("no-folder/destination").c_str(), source.c_str()), -1);
  EXPECT_EQ(open_descriptors(), before);
}

// A folder can be opened for reading, and every read of it fails.
TEST_F(FileCopyContract, AReadErrorEndsTheCopyAsSuccess) {
  EXPECT_EQ(OS_FILE_CP(path("destination").c_str(), sandbox_.root().c_str()), 0);
  ASSERT_TRUE(std::filesystem::exists(path("destination")));
  EXPECT_EQ(content(path("destination")), "");
}

// Every write to /dev/full fails for want of space.
TEST_F(FileCopyContract, AWriteErrorIsNotDetected) {
  const std::string source = make("source", std::string(100000, 'x'));
  EXPECT_EQ(OS_FILE_CP("/dev/full", source.c_str()), 0);
}

// Opened for writing after it was opened for reading, it is empty when the copy begins.
TEST_F(FileCopyContract, AFileCopiedToItselfIsEmptied) {
  const std::string file = make("file", "lost");
  EXPECT_EQ(OS_FILE_CP(file.c_str(), file.c_str()), 0);
  EXPECT_EQ(content(file), "");
}
