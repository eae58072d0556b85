// mu_buffer_dump, to the byte.

#include <gtest/gtest.h>

#include <type_traits>

#include "convert/contract_support.h"
#include "support/console.h"
#include "tarn/convert.h"

using namespace tarn_reference;
using tarn_test::Console;

static_assert(std::is_same_v<decltype(&mu_buffer_dump), mu_status_t (*)(const char *, const uint8_t *, uint16_t)>);

namespace {

std::string reference_dump(const std::string &title, const Bytes &bytes) {
  std::string text = "\r\n" + title + "\n";
  for (size_t i = 0; i < bytes.size(); i++) {
    text += "0123456789abcdef"[bytes[i] >> 4];
    text += "0123456789abcdef"[bytes[i] & 15];
    text += ' ';
    if (i % 16 == 15) text += '\n';
  }
  return text + '\n';
}

// What is printed for bytes and a title behind which nothing may be read.
std::string dump(const std::string &title, const Bytes &bytes) {
  TextMemory text;
  Pages pages(bytes.size() + 1);
  uint8_t *const data = pages.end() - bytes.size();
  std::copy(bytes.begin(), bytes.end(), data);
  mu_status_t status = -1;
  std::string printed;
  {
    Console console;
    status = mu_buffer_dump(text.at_end(title), data, static_cast<uint16_t>(bytes.size()));
    printed = console.take();
  }
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), data));
  return printed;
}

Bytes generated(size_t size) {
  Random random;
  Bytes bytes(size);
  for (uint8_t &byte : bytes) byte = random.byte();
  return bytes;
}

}  // namespace

TEST(BufferDumpContract, ZeroLengthPrintsTheTitleLineAndANewline) { EXPECT_EQ(dump("empty", {}), "\r\nempty\n\n"); }

TEST(BufferDumpContract, PrintsLowerCaseDigitsAndABlank) {
  EXPECT_EQ(dump("t", {0x00, 0x0A, 0xff, 0xB0}), "\r\nt\n00 0a ff b0 \n");
}

TEST(BufferDumpContract, SixteenBytesEndWithAnEmptyLine) {
  EXPECT_EQ(dump("t", {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}),
            "\r\nt\n00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f \n\n");
}

TEST(BufferDumpContract, SeventeenBytesTakeASecondRow) {
  EXPECT_EQ(dump("t", {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}),
            "\r\nt\n00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f \n10 \n");
}

TEST(BufferDumpContract, FollowsTheRulesAtEveryLength) {
  for (size_t size = 0; size <= 100 && !HasFailure(); size++) {
    const Bytes bytes = generated(size);
    EXPECT_EQ(dump("title", bytes), reference_dump("title", bytes)) << size;
  }
}

TEST(BufferDumpContract, FollowsTheRulesAtTheLongestLengths) {
  for (const size_t size : {255u, 256u, 257u, 4095u, 4096u, 32767u, 32768u, 65520u, 65535u}) {
    const Bytes bytes = generated(size);
    EXPECT_TRUE(dump("title", bytes) == reference_dump("title", bytes)) << size;
  }
}

TEST(BufferDumpContract, PrintsEveryByteValue) {
  Bytes bytes(256);
  for (size_t i = 0; i < bytes.size(); i++) bytes[i] = static_cast<uint8_t>(i);
  EXPECT_EQ(dump("all", bytes), reference_dump("all", bytes));
}

TEST(BufferDumpContract, TheTitleIsNoFormat) {
  EXPECT_EQ(dump("100%s %n%d\\n", {1}), "\r\n100%s %n%d\\n\n01 \n");
  EXPECT_EQ(dump("", {1}), "\r\n\n01 \n");
}

TEST(BufferDumpContract, ATitleOf892CharactersIsPrintedWhole) {
  const std::string title = Random().text("abcdefghijklmnopqrstuvwxyz", 892);
  EXPECT_EQ(dump(title, {1}), "\r\n" + title + "\n01 \n");
}

TEST(BufferDumpContract, ALongerTitleIsCutAt893CharactersWithoutItsNewline) {
  const std::string title = Random().text("abcdefghijklmnopqrstuvwxyz", 2000);
  for (const size_t length : {893u, 894u, 2000u}) {
    EXPECT_EQ(dump(title.substr(0, length), {1}), "\r\n" + title.substr(0, 893) + "01 \n") << length;
  }
}

TEST(BufferDumpContract, NullPrintsNothing) {
  const uint8_t byte = 7;
  mu_status_t status[4];
  std::string printed;
  {
    Console console;
    status[0] = mu_buffer_dump(nullptr, &byte, 1);
    status[1] = mu_buffer_dump("title", nullptr, 1);
    status[2] = mu_buffer_dump("title", nullptr, 0);
    status[3] = mu_buffer_dump(nullptr, nullptr, 0);
    printed = console.take();
  }
  EXPECT_EQ(printed, "");
  for (const mu_status_t each : status) EXPECT_EQ(each, 1);
}
