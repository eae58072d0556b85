// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// mu_printf, the library's console printer.

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <sstream>

#include "platform/fixture.h"

using namespace tarn_test;

static_assert(std::is_void_v<decltype(mu_printf("text"))>);
static_assert(MU_PRINTF_SIZE == 896);

namespace {

// Replaces standard output with a file that has a buffer of the given mode.
class OutputFile {
 public:
  explicit OutputFile(int buffering) : before_(stdout), file_(tmpfile()) {
    setvbuf(file_, buffer_, buffering, sizeof buffer_);
    stdout = file_;
  }
  ~OutputFile() {
    stdout = before_;
    fclose(file_);
  }
  OutputFile(const OutputFile &) = delete;
  OutputFile &operator=(const OutputFile &) = delete;

  // Bytes that have left the buffer.
  off_t written() const {
    struct stat status = {};
    fstat(fileno(file_), &status);
    return status.st_size;
  }

 private:
  char buffer_[4096];
  FILE *const before_;
  FILE *const file_;
};

}  // namespace

TEST(MuPrintf, AddsNothing) {
  Console console;
  mu_printf("one line\r\n");
  EXPECT_EQ(console.take(), "one line\r\n");
  mu_printf("no line end");
  EXPECT_EQ(console.take(), "no line end");
  mu_printf("%s", "");
  EXPECT_EQ(console.take(), "");
}

TEST(MuPrintf, FormatsItsArguments) {
  Console console;
  mu_printf("%-6s|%3d|%#x|%lu|%c|%5.2f|%%\n", "log", -7, 255u, 18446744073709551615ul, 'z', 2.5);
  EXPECT_EQ(console.take(), "log   | -7|0xff|18446744073709551615|z| 2.50|%\n");
  mu_printf("%d %d %d %d %d %d %d %d %d %d %.1f %.1f", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11.5, 12.5);
  EXPECT_EQ(console.take(), "1 2 3 4 5 6 7 8 9 10 11.5 12.5");
}

TEST(MuPrintf, TheFormattedTextIsNotAFormat) {
  Console console;
  mu_printf("%s %%d", "100%s%n%d");
  EXPECT_EQ(console.take(), "100%s%n%d %d");
}

// The buffer is printed as text, so a NUL ends it.
TEST(MuPrintf, ANulEndsTheText) {
  Console console;
  mu_printf("ab%ccd", '\0');
  EXPECT_EQ(console.take(), "ab");
}

TEST(MuPrintf, CutsAt895Characters) {
  std::string text;
  for (int i = 0; i < 20000; i++) text += static_cast<char>('a' + i % 26);
  Console console;
  for (const size_t length : {894u, 895u, 896u, 897u, 5000u, 20000u}) {
    mu_printf("%s", text.substr(0, length).c_str());
    EXPECT_EQ(console.take(), text.substr(0, std::min<size_t>(length, 895))) << length;
  }
}

TEST(MuPrintf, LeavesItToTheBufferingWhenTheTextIsShown) {
  {
    const OutputFile full(_IOFBF);
    mu_printf("a whole line\r\n");
    EXPECT_EQ(full.written(), 0);  // nothing is flushed
    fflush(stdout);
    EXPECT_EQ(full.written(), 14);
  }
  {
    const OutputFile by_line(_IOLBF);
    mu_printf("half ");
    EXPECT_EQ(by_line.written(), 0);
    mu_printf("and half\n");
    EXPECT_EQ(by_line.written(), 14);
  }
  const OutputFile at_once(_IONBF);
  mu_printf("half ");
  EXPECT_EQ(at_once.written(), 5);
}

TEST(MuPrintf, UsesNoHeap) {
  Console console;
  FailingMalloc no_memory(1, 1000);
  mu_printf("%s %d\n", std::string(800, 'x').c_str(), 5);
  EXPECT_EQ(no_memory.seen(), 0);
  EXPECT_EQ(console.take(), std::string(800, 'x') + " 5\n");
}

// Both texts are ready before either is printed: the threads wait for standard output, which the test holds.
TEST(MuPrintf, CallsAtTheSameTimeShareNothing) {
  Console console;
  flockfile(stdout);
  Waiter first([] { mu_printf("text 0\n"); });
  const bool first_waits = first.sleeps();
  Waiter second([] { mu_printf("text 1\n"); });
  const bool second_waits = second.sleeps();
  funlockfile(stdout);
  first.join();
  second.join();
  EXPECT_TRUE(first_waits && second_waits);
  EXPECT_THAT(console.take(), testing::AnyOf("text 0\ntext 1\n", "text 1\ntext 0\n"));
}

TEST(MuPrintf, ThreadsKeepTheirLinesWhole) {
  constexpr int kThreads = 4;
  constexpr int kLines = 200;
  Console console;
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int thread = 0; thread < kThreads; thread++) {
    threads.emplace_back([thread] {
      const std::string filler(static_cast<size_t>(50 + 150 * thread), static_cast<char>('a' + thread));
      for (int line = 0; line < kLines; line++) mu_printf("%d %d %s\n", thread, line, filler.c_str());
    });
  }
  for (std::thread &thread : threads) thread.join();
  std::vector<int> next(kThreads, 0);  // a thread's own lines keep their order
  std::istringstream all(console.take());
  for (std::string line; std::getline(all, line);) {
    const auto thread = static_cast<size_t>(line[0] - '0');
    ASSERT_LT(thread, next.size()) << line;
    const std::string filler(50 + 150 * thread, static_cast<char>('a' + thread));
    ASSERT_EQ(line, std::to_string(thread) + ' ' + std::to_string(next[thread]++) + ' ' + filler);
  }
  EXPECT_EQ(next, std::vector<int>(kThreads, kLines));
}
