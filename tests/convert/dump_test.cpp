#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "convert/texts.h"
#include "support/console.h"
#include "tarn/convert.h"

using namespace tarn_test;

namespace {

// Byte by byte, as the header describes it.
std::string model(const std::string &title, const std::vector<uint8_t> &bytes) {
  std::string text = "\r\n" + title + "\n";
  for (size_t i = 0; i < bytes.size(); i++) {
    text += hexadecimal(bytes[i], false, 2) + " ";
    if (i % 16 == 15) text += "\n";
  }
  return text + "\n";
}

std::vector<uint8_t> some_bytes(size_t count) {
  std::vector<uint8_t> bytes(count);
  for (size_t i = 0; i < count; i++) bytes[i] = static_cast<uint8_t>(i * 7 + 3);
  return bytes;
}

}  // namespace

TEST(BufferDump, PrintsRowsOfSixteen) {
  const uint8_t bytes[17] = {0x00, 0x01, 0x0A, 0x10, 0x7F, 0x80, 0x99, 0xA0, 0xAB,
                             0xCD, 0xEF, 0xF0, 0xFE, 0xFF, 0x0F, 0x5A, 0xC3};
  Console console;
  EXPECT_EQ(mu_buffer_dump("frame", bytes, sizeof bytes), 0);
  EXPECT_EQ(console.take(),
            "\r\nframe\n"
            "00 01 0a 10 7f 80 99 a0 ab cd ef f0 fe ff 0f 5a \n"
            "c3 \n");
}

TEST(BufferDump, EndsWithAnEmptyLineAfterAFullRow) {
  const uint8_t bytes[16] = {};
  Console console;
  EXPECT_EQ(mu_buffer_dump("zeros", bytes, sizeof bytes), 0);
  EXPECT_EQ(console.take(), "\r\nzeros\n00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 \n\n");
}

TEST(BufferDump, PrintsTheTitleAloneForNoBytes) {
  const uint8_t byte = 0xFF;
  Console console;
  EXPECT_EQ(mu_buffer_dump("nothing", &byte, 0), 0);
  EXPECT_EQ(console.take(), "\r\nnothing\n\n");
  EXPECT_EQ(mu_buffer_dump("", &byte, 0), 0);
  EXPECT_EQ(console.take(), "\r\n\n\n");
}

TEST(BufferDump, PrintsEveryLength) {
  Console console;
  for (size_t length = 0; length <= 300; length++) {
    const std::vector<uint8_t> bytes = some_bytes(length + 1);
    ASSERT_EQ(mu_buffer_dump("t", bytes.data(), static_cast<uint16_t>(length)), 0);
    ASSERT_EQ(console.take(), model("t", {bytes.begin(), bytes.end() - 1})) << length;
  }
}

TEST(BufferDump, PrintsTheLongestBuffer) {
  const std::vector<uint8_t> bytes = some_bytes(UINT16_MAX);
  Console console;
  EXPECT_EQ(mu_buffer_dump("all", bytes.data(), UINT16_MAX), 0);
  EXPECT_TRUE(console.take() == model("all", bytes));
}

TEST(BufferDump, TakesTheTitleAsItIs) {
  const uint8_t byte = 0x25;
  Console console;
  EXPECT_EQ(mu_buffer_dump("100 %d %s %n", &byte, 1), 0);
  EXPECT_EQ(console.take(), "\r\n100 %d %s %n\n25 \n");
}

TEST(BufferDump, CutsATitleThatFillsTheConsolePrinter) {
  const uint8_t byte = 0;
  Console console;
  const std::string title(892, 't');  // with "\r\n" and "\n", the 895 characters that mu_printf holds
  EXPECT_EQ(mu_buffer_dump(title.c_str(), &byte, 1), 0);
  EXPECT_EQ(console.take(), "\r\n" + title + "\n00 \n");
  EXPECT_EQ(mu_buffer_dump((title + "u").c_str(), &byte, 1), 0);
  EXPECT_EQ(console.take(), "\r\n" + title + "u00 \n");
  EXPECT_EQ(mu_buffer_dump((title + "uv").c_str(), &byte, 1), 0);
  EXPECT_EQ(console.take(), "\r\n" + title + "u00 \n");
}

TEST(BufferDump, PrintsNothingForNull) {
  const uint8_t byte = 0;
  Console console;
  EXPECT_EQ(mu_buffer_dump(nullptr, &byte, 1), 1);
  EXPECT_EQ(mu_buffer_dump("title", nullptr, 1), 1);
  EXPECT_EQ(mu_buffer_dump("title", nullptr, 0), 1);
  EXPECT_EQ(mu_buffer_dump(nullptr, nullptr, 0), 1);
  EXPECT_EQ(console.take(), "");
}
