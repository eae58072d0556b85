// Bytes in hexadecimal on standard output.

#include <climits>

#include "crypto/protected_bytes.h"
#include "crypto/reference.h"
#include "support/console.h"
#include "tarn/crypto.h"

using namespace crypto_test;
using tarn_test::Console;

namespace {

// 00 01 02 ...
Bytes counted(size_t count) {
  Bytes bytes(count);
  for (size_t i = 0; i < count; i++) bytes[i] = static_cast<uint8_t>(i);
  return bytes;
}

std::string hex_printed(const char *prefix, const uint8_t *buf, int32_t len) {
  Console console;
  print_hex(prefix, buf, len);
  return console.take();
}

std::string printed(void (*print)(const uint8_t *), const uint8_t *p) {
  Console console;
  print(p);
  return console.take();
}

std::string two_digits(uint8_t byte) {
  constexpr char kDigits[] = "0123456789abcdef";
  return {kDigits[byte / 16], kDigits[byte % 16]};
}

struct Row {
  int32_t len;
  const char *text;
};
constexpr Row kRows[] = {
    {INT_MIN, ""},
    {-1, ""},
    {0, ""},
    {1, "00\n"},
    {3, "000102\n"},
    {4, "00010203 \n"},
    {5, "00010203 04\n"},
    {15, "00010203 04050607 08090a0b 0c0d0e\n"},
    {16, "00010203 04050607 08090a0b 0c0d0e0f \n"},  // one line feed, and no prefix for a line that does not come
    {17, "00010203 04050607 08090a0b 0c0d0e0f \n> 10\n"},
    {20, "00010203 04050607 08090a0b 0c0d0e0f \n> 10111213 \n"},
    {32, "00010203 04050607 08090a0b 0c0d0e0f \n> 10111213 14151617 18191a1b 1c1d1e1f \n"},
    {33, "00010203 04050607 08090a0b 0c0d0e0f \n> 10111213 14151617 18191a1b 1c1d1e1f \n> 20\n"},
};

}  // namespace

TEST(PrintHex, PrintsGroupsOfFourAndLinesOfSixteen) {
  const Bytes bytes = counted(33);
  for (const Row &row : kRows) {
    const std::string text = hex_printed("> ", bytes.data(), row.len);
    EXPECT_EQ(text, row.text) << row.len;
  }
}

TEST(PrintHex, PrintsEveryByteAsTwoLowerCaseDigits) {
  for (unsigned value = 0; value < 256; value++) {
    const auto byte = static_cast<uint8_t>(value);
    const std::string text = hex_printed("", &byte, 1);
    EXPECT_EQ(text, two_digits(byte) + "\n");
  }
}

// Put together line by line and group by group.
TEST(PrintHex, PrintsTheSameAsAModelAndReadsNoByteMore) {
  ProtectedBytes room(100);
  Random random(20);
  for (size_t len = 1; len <= 100; len++) {
    const Bytes bytes = random.bytes(len);
    std::string expected;
    for (size_t line = 0; line < len; line += 16) {
      if (line != 0) expected += "%s prefix";
      for (size_t group = line; group < std::min(line + 16, len); group += 4) {
        for (size_t i = group; i < std::min(group + 4, len); i++) expected += two_digits(bytes[i]);
        if (group + 4 <= len) expected += ' ';
      }
      expected += '\n';
    }
    const std::string text = hex_printed("%s prefix", room.put(bytes), static_cast<int32_t>(len));
    ASSERT_EQ(text, expected) << len;
  }
}

TEST(PrintWords, PrintGroupsOfFourWithoutALineFeed) {
  const Bytes bytes = counted(16);
  ProtectedBytes room(16);
  EXPECT_EQ(printed(print32, room.put(Bytes(bytes.begin(), bytes.begin() + 4))), "00010203 ");
  EXPECT_EQ(printed(print64, room.put(Bytes(bytes.begin(), bytes.begin() + 8))), "00010203 04050607 ");
  EXPECT_EQ(printed(print96, room.put(Bytes(bytes.begin(), bytes.begin() + 12))), "00010203 04050607 08090a0b ");
  EXPECT_EQ(printed(print128, room.put(bytes)), "00010203 04050607 08090a0b 0c0d0e0f ");
  const Bytes high = from_hex("deadbeef");
  EXPECT_EQ(printed(print32, high.data()), "deadbeef ");
}
