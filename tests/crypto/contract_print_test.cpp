// Bytes in hexadecimal on the console.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <string>
#include <type_traits>

#include "crypto/contract_model.h"
#include "support/console.h"
#include "support/libc.h"
#include "tarn/crypto.h"

using namespace crypto_contract;
using namespace tarn_test;

static_assert(std::is_same_v<decltype(print_hex), void(const char *, const uint8_t *, int32_t)>);
static_assert(std::is_same_v<decltype(print128), void(const uint8_t *)>);

namespace {

// Rule by rule: the prefix before, the digits, the blank and the line feed after each byte, the last line feed.
std::string dump(const std::string &prefix, const Bytes &data) {
  std::string out;
  for (size_t i = 0; i < data.size(); i++) {
    if (i != 0 && i % 16 == 0) out += prefix;
    out += hex(&data[i], 1);
    if (i % 4 == 3) out += ' ';
    if (i % 16 == 15) out += '\n';
  }
  if (data.size() % 16 != 0) out += '\n';
  return out;
}

std::string printed(const char *prefix, const Bytes &data) {
  Console console;
  print_hex(prefix, data.data(), static_cast<int32_t>(data.size()));
  return console.take();
}

Bytes counting(size_t size, unsigned from = 0) {
  Bytes out(size);
  for (size_t i = 0; i < size; i++) out[i] = static_cast<uint8_t>(from + i);
  return out;
}

const struct {
  void (*print)(const uint8_t *);
  size_t size;
  const char *of_counting;
} kWords[] = {{print32, 4, "00010203 "},
              {print64, 8, "00010203 04050607 "},
              {print96, 12, "00010203 04050607 08090a0b "},
              {print128, 16, "00010203 04050607 08090a0b 0c0d0e0f "}};

}  // namespace

// ---- print_hex ------------------------------------------------------------------------------------------------------

TEST(PrintHexContract, PrintsOneLine) {
  EXPECT_EQ(printed("> ", counting(16)), "00010203 04050607 08090a0b 0c0d0e0f \n");
}

TEST(PrintHexContract, BeginsEachLineButTheFirstWithThePrefix) {
  EXPECT_EQ(printed("> ", counting(20)), "00010203 04050607 08090a0b 0c0d0e0f \n> 10111213 \n");
  EXPECT_EQ(printed("> ", counting(32)),
            "00010203 04050607 08090a0b 0c0d0e0f \n> 10111213 14151617 18191a1b 1c1d1e1f \n");
  EXPECT_EQ(printed("\t", counting(33)),
            "00010203 04050607 08090a0b 0c0d0e0f \n\t10111213 14151617 18191a1b 1c1d1e1f \n\t20\n");
}

TEST(PrintHexContract, EndsALastLineWithoutABlankInsideAGroup) {
  EXPECT_EQ(printed("> ", counting(1)), "00\n");
  EXPECT_EQ(printed("> ", counting(2)), "0001\n");
  EXPECT_EQ(printed("> ", counting(3)), "000102\n");
  EXPECT_EQ(printed("> ", counting(4)), "00010203 \n");
  EXPECT_EQ(printed("> ", counting(5)), "00010203 04\n");
  EXPECT_EQ(printed("> ", counting(15)), "00010203 04050607 08090a0b 0c0d0e\n");
  EXPECT_EQ(printed("> ", counting(17)), "00010203 04050607 08090a0b 0c0d0e0f \n> 10\n");
}

TEST(PrintHexContract, PrintsEveryLength) {
  Random random(80);
  for (size_t size = 0; size <= 130; size++) {
    const Bytes data = random(size);
    const std::string got = printed("key: ", data);
    ASSERT_EQ(got, dump("key: ", data)) << size;
  }
}

TEST(PrintHexContract, PrintsEveryByteAsTwoLowerCaseDigits) {
  const Bytes all = counting(256);
  EXPECT_EQ(printed("", all), dump("", all));
  EXPECT_EQ(printed("", bytes("abcdef00")), "abcdef00 \n");
  EXPECT_EQ(printed("", bytes("0a")), "0a\n");
}

// Nothing is read either.
TEST(PrintHexContract, PrintsNothingForNoBytesOrFewer) {
  const Fenced fence({}, Edge::kLast);
  for (const int32_t len : {0, -1, -4, -16, -17, -256, INT_MIN}) {
    Console console;
    print_hex("prefix", fence.forbidden(), len);
    const std::string got = console.take();
    EXPECT_EQ(got, "") << len;
  }
}

TEST(PrintHexContract, TakesAnEmptyPrefix) { EXPECT_EQ(printed("", counting(40)), dump("", counting(40))); }

TEST(PrintHexContract, ThePrefixIsNoFormat) {
  EXPECT_EQ(printed("100%s%n%d%%", counting(40)), dump("100%s%n%d%%", counting(40)));
}

// Longer than what the library's console printer takes at once: this is libc's.
TEST(PrintHexContract, PrintsAPrefixOfAnyLength) {
  for (const size_t size : {895u, 896u, 897u, 5000u}) {
    const std::string prefix(size, 'p');
    EXPECT_EQ(printed(prefix.c_str(), counting(33)), dump(prefix, counting(33))) << size;
  }
}

TEST(PrintHexContract, PrintsManyLines) {
  const Bytes data = Random(81)(5000);
  const std::string got = printed("  ", data);
  EXPECT_EQ(got, dump("  ", data));
}

TEST(PrintHexContract, ReadsNothingButItsBytes) {
  Random random(82);
  for (const size_t size : {1u, 3u, 4u, 7u, 15u, 16u, 17u, 31u, 32u, 33u}) {
    const Bytes data = random(size);
    for (const Edge edge : kEdges) {
      const Fenced in(data, edge);
      const uint8_t *const sealed = in.sealed();
      Console console;
      print_hex("|", sealed, static_cast<int32_t>(size));
      const std::string got = console.take();
      EXPECT_EQ(got, dump("|", data)) << size;
    }
  }
}

// ---- Words ----------------------------------------------------------------------------------------------------------

TEST(PrintWordsContract, PrintGroupsWithABlankAfterEachAndNoLineFeed) {
  const Bytes data = counting(16);
  for (const auto &words : kWords) {
    Console console;
    words.print(data.data());
    const std::string got = console.take();
    EXPECT_EQ(got, words.of_counting);
  }
}

TEST(PrintWordsContract, PrintEveryByte) {
  for (const auto &words : kWords) {
    for (unsigned from = 0; from < 256; from += 4) {
      const Bytes data = counting(words.size, from);
      std::string expected = dump("", data);
      expected.pop_back();  // the line feed
      Console console;
      words.print(data.data());
      const std::string got = console.take();
      ASSERT_EQ(got, expected) << words.size << ' ' << from;
    }
  }
}

TEST(PrintWordsContract, ReadNothingButTheirBytes) {
  for (const auto &words : kWords) {
    for (const Edge edge : kEdges) {
      const Fenced in(counting(words.size), edge);
      const uint8_t *const sealed = in.sealed();
      Console console;
      words.print(sealed);
      const std::string got = console.take();
      EXPECT_EQ(got, words.of_counting);
    }
  }
}

TEST(PrintWordsContract, TakeBytesOfAnyAlignment) {
  const Bytes data = counting(16);
  for (const auto &words : kWords) {
    for (size_t at = 0; at < 16; at++) {
      alignas(16) uint8_t room[32];
      std::copy(data.begin(), data.end(), room + at);
      Console console;
      words.print(room + at);
      const std::string got = console.take();
      EXPECT_EQ(got, words.of_counting) << at;
    }
  }
}

// ---- Standard output ------------------------------------------------------------------------------------------------

// libc's stream: what a program prints with it itself stands between.
TEST(PrintStreamContract, KeepsTheOrderOfWhatIsPrintedAround) {
  const Bytes data = counting(20);
  Console console;
  printf("a");
  print_hex("+", data.data(), 20);
  putchar('b');
  print32(data.data());
  fputs("c", stdout);
  print128(data.data());
  putchar('\n');
  EXPECT_EQ(console.take(),
            "a00010203 04050607 08090a0b 0c0d0e0f \n+10111213 \nb00010203 c00010203 04050607 08090a0b 0c0d0e0f \n");
}

// A buffered stream keeps it until the program flushes.
TEST(PrintStreamContract, FlushesNothing) {
  const Bytes data = counting(20);
  FILE *const before = stdout;
  FILE *const file = tmpfile();
  ASSERT_NE(file, nullptr);
  char buffer[4096];
  setvbuf(file, buffer, _IOFBF, sizeof buffer);
  stdout = file;
  print_hex("+", data.data(), 20);
  print128(data.data());
  uint8_t tag = 0;
  const mu_status_t status = aes128_cmac_compute(data.data(), data.data(), 4, 0, &tag);
  struct stat unflushed = {};
  fstat(fileno(file), &unflushed);
  fflush(file);
  struct stat flushed = {};
  fstat(fileno(file), &flushed);
  stdout = before;
  fclose(file);
  EXPECT_EQ(status, 2);
  EXPECT_EQ(unflushed.st_size, 0);
  EXPECT_EQ(flushed.st_size, static_cast<off_t>(dump("+", data).size() + strlen(kWords[3].of_counting) +
                                                strlen("parameter error!!val is :0\n")));
}

TEST(PrintStreamContract, AllocatesNothing) {
  const Bytes data = counting(40);
  const FailingMalloc no_memory(1, 1000);
  Console console;
  print_hex("+", data.data(), 40);
  for (const auto &words : kWords) words.print(data.data());
  console.take();
  EXPECT_EQ(no_memory.seen(), 0);
}
