// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Files under the platform's names.

#include <fcntl.h>

#include <filesystem>
#include <iterator>

#include "platform/fixture.h"
#include "support/sandbox.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&mu_file_open), long (*)(const char *, int, mode_t)>);
static_assert(std::is_same_v<decltype(&mu_file_close), long (*)(int)>);
static_assert(std::is_same_v<decltype(&mu_file_read), long (*)(int, void *, uint32_t)>);
static_assert(std::is_same_v<decltype(&mu_file_write), long (*)(int, const void *, uint32_t)>);
static_assert(std::is_same_v<decltype(&mu_file_size), long (*)(FILE *)>);
static_assert(std::is_same_v<decltype(&mu_file_cp), long (*)(const char *, const char *)>);

namespace {

class MuFile : public testing::Test {
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
  static int open_file(const std::string &file, int flags) {
    return static_cast<int>(mu_file_open(file.c_str(), flags, 0600));
  }

  Sandbox sandbox_;
};

}  // namespace

TEST_F(MuFile, WritesAndReadsBack) {
  const std::string file = path("file");
  const int out = open_file(file, O_WRONLY | O_CREAT | O_EXCL);
  ASSERT_GE(out, 0);
  EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms{0600});
  EXPECT_EQ(open_file(file, O_WRONLY | O_CREAT | O_EXCL), -1);
  EXPECT_EQ(mu_file_write(out, "0123456789", 10), 10);
  EXPECT_EQ(mu_file_close(out), 0);
  EXPECT_EQ(mu_file_close(out), -1);
  const int in = open_file(file, O_RDONLY);
  char buffer[16] = {};
  EXPECT_EQ(mu_file_read(in, buffer, 4), 4);
  EXPECT_EQ(mu_file_read(in, buffer + 4, 12), 6);
  EXPECT_EQ(mu_file_read(in, buffer, 16), 0);
  EXPECT_STREQ(buffer, "0123456789");
  EXPECT_EQ(mu_file_close(in), 0);
}

TEST_F(MuFile, FailuresPassThrough) {
  const Quiet quiet;
  char buffer[4];
  EXPECT_EQ(open_file(path("missing"), O_RDONLY), -1);
  EXPECT_EQ(mu_file_read(-1, buffer, 4), -1);
  EXPECT_EQ(mu_file_write(-1, "abcd", 4), -1);
  EXPECT_EQ(mu_file_close(-1), -1);
  EXPECT_EQ(mu_file_cp(path("copy").c_str(), path("missing").c_str()), -1);
  EXPECT_EQ(mu_file_cp(path("copy").c_str(), nullptr), -1);
  EXPECT_FALSE(std::filesystem::exists(path("copy")));
}

// As a signed number, such a length is negative: an impossible request.
TEST_F(MuFile, ALengthAbove31BitsFails) {
  const std::string file = make("ten", "0123456789");
  const int both = open_file(file, O_RDWR);
  for (const uint32_t length : {0x80000000u, 0xFFFFFFF0u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(length);
    char buffer[16] = "untouched";
    EXPECT_EQ(mu_file_read(both, buffer, length), -1);
    EXPECT_STREQ(buffer, "untouched");
    EXPECT_EQ(mu_file_write(both, buffer, length), -1);
  }
  mu_file_close(both);
  EXPECT_EQ(content(file), "0123456789");
}

TEST_F(MuFile, SizeLeavesTheStreamAtItsStart) {
  FILE *stream = fopen(make("ten", "0123456789").c_str(), "r");
  ASSERT_NE(stream, nullptr);
  fseek(stream, 4, SEEK_SET);
  EXPECT_EQ(mu_file_size(stream), 10);
  EXPECT_EQ(ftell(stream), 0);
  fclose(stream);
}

TEST_F(MuFile, CopyTakesItsDestinationFirst) {
  const std::string source = make("source", "copied");
  EXPECT_EQ(mu_file_cp(path("copy").c_str(), source.c_str()), 0);
  EXPECT_EQ(content(path("copy")), "copied");
  EXPECT_EQ(content(source), "copied");
}
