// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Files by descriptor, the size of a stream's file, and the copy.

#include <fcntl.h>
#include <sys/stat.h>

#include <climits>
#include <filesystem>
#include <iterator>
#include <memory>
#include <type_traits>

#include "os/fixture.h"
#include "support/sandbox.h"

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

class OsFile : public testing::Test {
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
  static int open(const std::string &file, int flags, mode_t mode = 0) {
    const long descriptor = OS_FILE_OPEN(file.c_str(), flags, mode);
    EXPECT_GE(descriptor, 0) << strerror(errno);
    return static_cast<int>(descriptor);
  }
  static size_t open_descriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(all), end(all)));
  }

  Sandbox sandbox_;
};

// The kernel's error for a length above any file size.
void expect_impossible(long result) {
  EXPECT_EQ(result, -1);
  EXPECT_TRUE(errno == EINVAL || errno == EFAULT) << errno;
  errno = 0;
}

}  // namespace

// ---- Descriptors ----------------------------------------------------------------------------------------------------

TEST_F(OsFile, OpensWithFlagsAndModeAsGiven) {
  const std::string name = path("new");
  const mode_t umask_before = umask(0);
  const int file = open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0641);
  umask(umask_before);
  struct stat status = {};
  ASSERT_EQ(fstat(file, &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0641u);
  EXPECT_EQ(fcntl(file, F_GETFL) & O_ACCMODE, O_WRONLY);
  EXPECT_EQ(fcntl(file, F_GETFD), FD_CLOEXEC);
  errno = 0;
  EXPECT_EQ(OS_FILE_OPEN(name.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0641), -1);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(OS_FILE_CLOSE(file), 0);
}

TEST_F(OsFile, OpenAddsNoFlagOfItsOwn) {
  const std::string name = make("kept", "0123456789");
  const int plain = open(name, O_WRONLY);
  EXPECT_EQ(OS_FILE_WRITE(plain, "ab", 2), 2);
  EXPECT_EQ(OS_FILE_CLOSE(plain), 0);
  EXPECT_EQ(content(name), "ab23456789");
  const int append = open(name, O_WRONLY | O_APPEND);
  EXPECT_EQ(fcntl(append, F_GETFD), 0);
  EXPECT_EQ(OS_FILE_WRITE(append, "X", 1), 1);
  EXPECT_EQ(OS_FILE_CLOSE(append), 0);
  EXPECT_EQ(content(name), "ab23456789X");
}

TEST_F(OsFile, OpenFailsWithMinusOneAndTheSystemsError) {
  const Quiet quiet;
  errno = 0;
  EXPECT_EQ(OS_FILE_OPEN(path("missing").c_str(), O_RDONLY, 0), -1);
  EXPECT_EQ(errno, ENOENT);
}

TEST_F(OsFile, CloseGivesTheSystemsResult) {
  const int file = open(make("some", ""), O_RDONLY);
  EXPECT_EQ(OS_FILE_CLOSE(file), 0);
  EXPECT_EQ(fcntl(file, F_GETFD), -1);
  errno = 0;
  EXPECT_EQ(OS_FILE_CLOSE(file), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(OS_FILE_CLOSE(-1), -1);
}

TEST_F(OsFile, ReadGivesTheCountUpToTheEndOfTheFile) {
  const int file = open(make("ten", "0123456789"), O_RDONLY);
  char buffer[16] = {};
  EXPECT_EQ(OS_FILE_READ(file, buffer, 4), 4);
  EXPECT_EQ(std::string(buffer, 5), std::string("0123\0", 5));
  EXPECT_EQ(OS_FILE_READ(file, buffer, 0), 0);
  EXPECT_EQ(OS_FILE_READ(file, buffer, 16), 6);
  EXPECT_EQ(std::string(buffer, 6), "456789");
  EXPECT_EQ(OS_FILE_READ(file, buffer, 16), 0);
  OS_FILE_CLOSE(file);
}

TEST_F(OsFile, WriteGivesTheCount) {
  const std::string name = path("out");
  const int file = open(name, O_WRONLY | O_CREAT, 0600);
  EXPECT_EQ(OS_FILE_WRITE(file, "abc\0def", 7), 7);
  EXPECT_EQ(OS_FILE_WRITE(file, "ghi", 0), 0);
  OS_FILE_CLOSE(file);
  EXPECT_EQ(content(name), std::string("abc\0def", 7));
}

// A negative length is sign-extended to 64 bits and is then above any file size. If it were taken as unsigned 32 bits,
// the read would return the ten bytes.
TEST_F(OsFile, NegativeLengthsAreRejectedByTheSystem) {
  const Quiet quiet;
  const std::string name = make("ten", "0123456789");
  const int file = open(name, O_RDWR);
  for (const int length : {-1, -16, INT_MIN}) {
    SCOPED_TRACE(length);
    char buffer[16] = "untouched";
    errno = 0;
    expect_impossible(OS_FILE_READ(file, buffer, length));
    EXPECT_STREQ(buffer, "untouched");
    expect_impossible(OS_FILE_WRITE(file, "abc", length));
    EXPECT_EQ(lseek(file, 0, SEEK_CUR), 0);
  }
  OS_FILE_CLOSE(file);
  EXPECT_EQ(content(name), "0123456789");
}

TEST_F(OsFile, ReadAndWriteFailAsTheSystemDoes) {
  char buffer[4] = "abc";
  errno = 0;
  EXPECT_EQ(OS_FILE_READ(-1, buffer, 4), -1);
  EXPECT_EQ(errno, EBADF);
  errno = 0;
  EXPECT_EQ(OS_FILE_WRITE(-1, buffer, 1), -1);
  EXPECT_EQ(errno, EBADF);
  const int file = open(make("in", "x"), O_RDONLY);
  errno = 0;
  EXPECT_EQ(OS_FILE_WRITE(file, buffer, 3), -1);
  EXPECT_EQ(errno, EBADF);
  OS_FILE_CLOSE(file);
}

TEST_F(OsFile, ASignalEndsARead) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  long result = 0;
  int error = 0;
  Waiter reader([&] {
    char byte = 0;
    result = OS_FILE_READ(ends[0], &byte, 1);
    error = errno;
  });
  EXPECT_TRUE(reader.ends_by_a_signal());
  close(ends[1]);
  reader.join();
  EXPECT_EQ(result, -1);
  EXPECT_EQ(error, EINTR);
  close(ends[0]);
}

// ---- Sizes ----------------------------------------------------------------------------------------------------------

TEST_F(OsFile, SizeLeavesTheStreamAtItsStart) {
  const std::string file = make("ten", "0123456789");
  for (const int position : {0, 4, 10, 25}) {
    SCOPED_TRACE(position);
    const Stream stream(fopen(file.c_str(), "r"));
    ASSERT_EQ(fseek(stream.get(), position, SEEK_SET), 0);
    EXPECT_EQ(OS_FILE_SIZE(stream.get()), 10);
    EXPECT_EQ(ftell(stream.get()), 0);
    EXPECT_EQ(fgetc(stream.get()), '0');
  }
  const Stream stream(fopen(file.c_str(), "r"));
  char head[4];
  ASSERT_EQ(fread(head, 1, 4, stream.get()), 4u);
  EXPECT_EQ(OS_FILE_SIZE(stream.get()), 10);
  EXPECT_EQ(ftell(stream.get()), 0);
}

TEST_F(OsFile, SizeOfAnEmptyFileIsZero) {
  const Stream stream(fopen(make("empty", "").c_str(), "r"));
  EXPECT_EQ(fgetc(stream.get()), EOF);
  EXPECT_EQ(OS_FILE_SIZE(stream.get()), 0);
}

TEST_F(OsFile, SizeCountsWhatTheStreamStillHolds) {
  const Stream stream(fopen(path("held").c_str(), "w+"));
  fputs("held back", stream.get());
  EXPECT_EQ(OS_FILE_SIZE(stream.get()), 9);
  EXPECT_EQ(fgetc(stream.get()), 'h');
}

TEST_F(OsFile, SizeIsCutTo32Bits) {
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

TEST_F(OsFile, SizeOfAPipeIsAnError) {
  const Quiet quiet;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  close(ends[1]);
  const Stream stream(fdopen(ends[0], "r"));
  EXPECT_EQ(OS_FILE_SIZE(stream.get()), -1);
}

// ---- Copies ---------------------------------------------------------------------------------------------------------

TEST_F(OsFile, CopiesEveryByteDestinationFirst) {
  std::string bytes;
  for (int i = 0; i < 70000; i++) bytes += static_cast<char>(i * 7 % 256);  // 0xFF, NUL and line ends among them
  const std::string source = make("source", bytes);
  const std::string destination = path("destination");
  EXPECT_EQ(OS_FILE_CP(destination.c_str(), source.c_str()), 0);
  EXPECT_EQ(content(destination), bytes);
  EXPECT_EQ(content(source), bytes);
}

TEST_F(OsFile, CopyTruncatesALongerDestination) {
  const std::string source = make("source", "short");
  const std::string destination = make("destination", std::string(100000, 'x'));
  EXPECT_EQ(OS_FILE_CP(destination.c_str(), source.c_str()), 0);
  EXPECT_EQ(content(destination), "short");
}

TEST_F(OsFile, CopiesAnEmptyFile) {
  const std::string source = make("source", "");
  const std::string destination = path("destination");
  EXPECT_EQ(OS_FILE_CP(destination.c_str(), source.c_str()), 0);
  ASSERT_TRUE(std::filesystem::exists(destination));
  EXPECT_EQ(content(destination), "");
}

TEST_F(OsFile, CopyRefusesNullAndOpensNothing) {
  const Quiet quiet;
  const std::string file = make("file", "kept");
  EXPECT_EQ(OS_FILE_CP(nullptr, file.c_str()), -1);
  EXPECT_EQ(OS_FILE_CP(file.c_str(), nullptr), -1);
  EXPECT_EQ(OS_FILE_CP(path("destination").c_str(), nullptr), -1);
  EXPECT_EQ(OS_FILE_CP(nullptr, nullptr), -1);
  EXPECT_EQ(content(file), "kept");
  EXPECT_FALSE(std::filesystem::exists(path("destination")));
}

TEST_F(OsFile, CopyOfAMissingSourceLeavesTheDestinationUntouched) {
  const Quiet quiet;
  EXPECT_EQ(OS_FILE_CP(path("destination").c_str(), path("missing").c_str()), -1);
  EXPECT_FALSE(std::filesystem::exists(path("destination")));
  const std::string existing = make("existing", "kept");
  EXPECT_EQ(OS_FILE_CP(existing.c_str(), path("missing").c_str()), -1);
  EXPECT_EQ(content(existing), "kept");
}

TEST_F(OsFile, CopyFailsWhenTheDestinationCannotBeOpened) {
  const Quiet quiet;
  const std::string source = make("source", "some");
  EXPECT_EQ(OS_FILE_CP(path("no-folder/destination").c_str(), source.c_str()), -1);
  EXPECT_EQ(content(source), "some");
}

TEST_F(OsFile, CopyClosesWhatItOpened) {
  const std::string source = make("source", "some");
  const size_t before = open_descriptors();
  EXPECT_EQ(OS_FILE_CP(path("destination").c_str(), source.c_str()), 0);
  EXPECT_EQ(open_descriptors(), before);
  EXPECT_EQ(OS_FILE_CP(path("no-folder/destination").c_str(), source.c_str()), -1);
  EXPECT_EQ(open_descriptors(), before);
  EXPECT_EQ(OS_FILE_CP(path("destination").c_str(), path("missing").c_str()), -1);
  EXPECT_EQ(open_descriptors(), before);
}

// A folder can be opened for reading, and every read of it fails.
TEST_F(OsFile, CopyEndsAtAReadErrorAsSuccess) {
  EXPECT_EQ(OS_FILE_CP(path("destination").c_str(), sandbox_.root().c_str()), 0);
  ASSERT_TRUE(std::filesystem::exists(path("destination")));
  EXPECT_EQ(content(path("destination")), "");
}

// Every write to /dev/full fails with ENOSPC.
TEST_F(OsFile, CopyDoesNotDetectWriteErrors) {
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "this system has no /dev/full";
  const std::string source = make("source", std::string(100000, 'x'));
  EXPECT_EQ(OS_FILE_CP("/dev/full", source.c_str()), 0);
}

// The file is opened for reading, then for writing, which truncates it: it is empty when the copy begins.
TEST_F(OsFile, AFileCopiedToItselfIsEmptied) {
  const std::string file = make("file", "lost");
  EXPECT_EQ(OS_FILE_CP(file.c_str(), file.c_str()), 0);
  EXPECT_EQ(content(file), "");
}
