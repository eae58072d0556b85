// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Bytes in hexadecimal on standard output.

#include <sys/stat.h>

#include <climits>
#include <cstdio>
#include <type_traits>

#include "crypto/fixture.h"
#include "support/console.h"
#include "support/libc.h"

using namespace crypto_test;
using namespace tarn_test;

static_assert(std::is_same_v<decltype(print_hex), void(const char *, const uint8_t *, int32_t)>);
static_assert(std::is_same_v<decltype(print128), void(const uint8_t *)>);

namespace {

std::string hex_printed(const std::string &prefix, const uint8_t *buf, int32_t len) {
  Console console;
  print_hex(prefix.c_str(), buf, len);
  return console.take();
}

std::string hex_printed(const std::string &prefix, const Bytes &bytes) {
  return hex_printed(prefix, bytes.data(), static_cast<int32_t>(bytes.size()));
}

std::string printed(void (*print)(const uint8_t *), const uint8_t *p) {
  Console console;
  print(p);
  return console.take();
}

// Rule by rule: the prefix before, the digits, the blank and the line feed after each byte, the last line feed.
std::string dump(const std::string &prefix, const Bytes &bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < bytes.size(); i++) {
    if (i != 0 && i % 16 == 0) text += prefix;
    text += kDigits[bytes[i] / 16];
    text += kDigits[bytes[i] % 16];
    if (i % 4 == 3) text += ' ';
    if (i % 16 == 15) text += '\n';
  }
  if (bytes.size() % 16 != 0) text += '\n';
  return text;
}

constexpr struct {
  int32_t len;
  const char *text;
} kRows[] = {
    {INT_MIN, ""},
    {-1, ""},
    {0, ""},
    {1, "00\n"},
    {2, "0001\n"},
    {3, "000102\n"},
    {4, "00010203 \n"},
    {5, "00010203 04\n"},
    {15, "00010203 04050607 08090a0b 0c0d0e\n"},
    {16, "00010203 04050607 08090a0b 0c0d0e0f \n"},  // one line feed, and no prefix for a line that does not follow
    {17, "00010203 04050607 08090a0b 0c0d0e0f \n> 10\n"},
    {20, "00010203 04050607 08090a0b 0c0d0e0f \n> 10111213 \n"},
    {32, "00010203 04050607 08090a0b 0c0d0e0f \n> 10111213 14151617 18191a1b 1c1d1e1f \n"},
    {33, "00010203 04050607 08090a0b 0c0d0e0f \n> 10111213 14151617 18191a1b 1c1d1e1f \n> 20\n"},
};

constexpr struct {
  void (*print)(const uint8_t *);
  size_t size;
  const char *of_counted;
} kWords[] = {{print32, 4, "00010203 "},
              {print64, 8, "00010203 04050607 "},
              {print96, 12, "00010203 04050607 08090a0b "},
              {print128, 16, "00010203 04050607 08090a0b 0c0d0e0f "}};

}  // namespace

// ---- print_hex ------------------------------------------------------------------------------------------------------

TEST(PrintHex, PrintsGroupsOfFourAndLinesOfSixteen) {
  const Bytes bytes = counted(33);
  for (const auto &row : kRows) {
    const std::string text = hex_printed("> ", bytes.data(), row.len);
    EXPECT_EQ(text, row.text) << row.len;
  }
}

TEST(PrintHex, PrintsEveryLengthAndReadsNoByteMore) {
  Random random(60);
  for (size_t len = 0; len <= 130; len++) {
    const Bytes bytes = random.bytes(len);
    for (const Guarded::End end : kEnds) {
      const Sealed buf(bytes, end);
      const std::string text = hex_printed("key: ", buf.bytes(), static_cast<int32_t>(len));
      ASSERT_EQ(text, dump("key: ", bytes)) << len;
    }
  }
}

TEST(PrintHex, PrintsManyLines) {
  const Bytes bytes = Random(61).bytes(5000);
  const std::string text = hex_printed("  ", bytes);
  EXPECT_EQ(text, dump("  ", bytes));
}

TEST(PrintHex, PrintsEveryByteAsTwoLowerCaseDigits) {
  const Bytes all = counted(256);
  const std::string text = hex_printed("", all);
  EXPECT_EQ(text, dump("", all));
  EXPECT_EQ(hex_printed("", from_hex("abcdef00")), "abcdef00 \n");
  EXPECT_EQ(hex_printed("", from_hex("0a")), "0a\n");
}

// Nothing is read either.
TEST(PrintHex, PrintsNothingForNoBytesOrFewer) {
  const Guarded nothing(0);
  for (const int32_t len : {0, -1, -4, -16, -17, -256, INT_MIN}) {
    const std::string text = hex_printed("prefix", nothing.bytes(), len);
    EXPECT_EQ(text, "") << len;
  }
}

// Also longer than the limit of the library's console printer: this is libc's printf.
TEST(PrintHex, PrintsAnyPrefixAsItIs) {
  std::vector<std::string> prefixes = {"", "\t", "100%s%n%d%%", "%s prefix"};
  for (const size_t size : {895u, 896u, 897u, 5000u}) prefixes.emplace_back(size, 'p');
  for (const std::string &prefix : prefixes) {
    const std::string text = hex_printed(prefix, counted(40));
    EXPECT_EQ(text, dump(prefix, counted(40))) << prefix.size();
  }
}

// ---- Words ----------------------------------------------------------------------------------------------------------

TEST(PrintWords, PrintGroupsOfFourWithoutALineFeedAndReadNothingElse) {
  for (const auto &words : kWords) {
    for (const Guarded::End end : kEnds) {
      const Sealed bytes(counted(words.size), end);
      const std::string text = printed(words.print, bytes.bytes());
      EXPECT_EQ(text, words.of_counted);
    }
  }
}

TEST(PrintWords, PrintEveryByteAtEveryAddress) {
  for (const auto &words : kWords) {
    for (unsigned from = 0; from < 256; from += 4) {
      alignas(16) uint8_t room[32];
      uint8_t *const p = room + from / 4 % 16;
      const Bytes bytes = counted(words.size, from);
      std::copy(bytes.begin(), bytes.end(), p);
      std::string expected = dump("", bytes);
      expected.pop_back();  // the line feed
      const std::string text = printed(words.print, p);
      ASSERT_EQ(text, expected) << words.size << ' ' << from;
    }
  }
}

// ---- Standard output ------------------------------------------------------------------------------------------------

// libc's stream: a program's own output with it stays in order.
TEST(PrintStream, KeepsTheOrderOfWhatIsPrintedAround) {
  const Bytes bytes = counted(20);
  Console console;
  printf("a");
  print_hex("+", bytes.data(), 20);
  putchar('b');
  print32(bytes.data());
  fputs("c", stdout);
  print128(bytes.data());
  putchar('\n');
  EXPECT_EQ(console.take(),
            "a00010203 04050607 08090a0b 0c0d0e0f \n+10111213 \nb00010203 c00010203 04050607 08090a0b 0c0d0e0f \n");
}

// A buffered stream keeps the text until the program flushes.
TEST(PrintStream, FlushesNothing) {
  const Bytes bytes = counted(20);
  FILE *const before = stdout;
  FILE *const file = tmpfile();
  ASSERT_NE(file, nullptr);
  char buffer[4096];
  setvbuf(file, buffer, _IOFBF, sizeof buffer);
  stdout = file;
  print_hex("+", bytes.data(), 20);
  print128(bytes.data());
  uint8_t tag = 0;
  const mu_status_t status = aes128_cmac_compute(bytes.data(), bytes.data(), 4, 0, &tag);
  struct stat unflushed = {};
  fstat(fileno(file), &unflushed);
  fflush(file);
  struct stat flushed = {};
  fstat(fileno(file), &flushed);
  stdout = before;
  fclose(file);
  EXPECT_EQ(status, 2);
  EXPECT_EQ(unflushed.st_size, 0);
  const std::string expected = dump("+", bytes) + kWords[3].of_counted + "parameter error!!val is :0\n";
  EXPECT_EQ(flushed.st_size, static_cast<off_t>(expected.size()));
}

TEST(PrintStream, AllocatesNothing) {
  const Bytes bytes = counted(40);
  const FailingMalloc no_memory(1, 1000);
  Console console;
  print_hex("+", bytes.data(), 40);
  for (const auto &words : kWords) words.print(bytes.data());
  console.take();
  EXPECT_EQ(no_memory.seen(), 0);
}
