// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// mu_buffer_dump, to the byte.

#include <type_traits>

#include "convert/fixture.h"
#include "support/console.h"

using namespace tarn_test;

static_assert(std::is_same_v<decltype(&mu_buffer_dump), mu_status_t (*)(const char *, const uint8_t *, uint16_t)>);

namespace {

// The expected output, as the header describes it.
std::string reference_dump(const std::string &title, const Bytes &bytes) {
  std::string text = "\r\n" + title + "\n";
  for (size_t i = 0; i < bytes.size(); i++) {
    text += hexadecimal(bytes[i], false, 2) + " ";
    if (i % 16 == 15) text += "\n";
  }
  return text + "\n";
}

class BufferDump : public Conversion {
 protected:
  // The output for a title and bytes after which nothing may be read. The bytes are read-only.
  std::string dump(const std::string &title, const Bytes &bytes) {
    const Guarded data(bytes);
    data.protect(PROT_READ);
    Console console;
    const mu_status_t status = mu_buffer_dump(text_.at_end(title), data.bytes(), static_cast<uint16_t>(bytes.size()));
    std::string printed = console.take();
    EXPECT_EQ(status, 0);
    return printed;
  }
};

Bytes counted(size_t size) {
  Bytes bytes(size);
  for (size_t i = 0; i < size; i++) bytes[i] = static_cast<uint8_t>(i);
  return bytes;
}

}  // namespace

TEST_F(BufferDump, PrintsRowsOfSixteen) {
  EXPECT_EQ(dump("frame", {0x00, 0x01, 0x0A, 0x10, 0x7F, 0x80, 0x99, 0xA0, 0xAB, 0xCD, 0xEF, 0xF0, 0xFE, 0xFF, 0x0F,
                           0x5A, 0xC3}),
            "\r\nframe\n"
            "00 01 0a 10 7f 80 99 a0 ab cd ef f0 fe ff 0f 5a \n"
            "c3 \n");
  EXPECT_EQ(dump("t", {0x00, 0x0A, 0xff, 0xB0}), "\r\nt\n00 0a ff b0 \n");
  EXPECT_EQ(dump("t", counted(17)), "\r\nt\n00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f \n10 \n");
}

TEST_F(BufferDump, EndsWithAnEmptyLineAfterAFullRow) {
  EXPECT_EQ(dump("zeros", Bytes(16)), "\r\nzeros\n00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 \n\n");
  EXPECT_EQ(dump("t", counted(16)), "\r\nt\n00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f \n\n");
}

TEST_F(BufferDump, PrintsOnlyTheTitleForNoBytes) {
  EXPECT_EQ(dump("nothing", {}), "\r\nnothing\n\n");
  EXPECT_EQ(dump("", {}), "\r\n\n\n");
}

TEST_F(BufferDump, PrintsEveryByteValue) { EXPECT_EQ(dump("all", counted(256)), reference_dump("all", counted(256))); }

TEST_F(BufferDump, PrintsEveryLength) {
  Random random(1);
  for (size_t size = 0; size <= 300 && !HasFailure(); size++) {
    const Bytes bytes = random.bytes(size);
    EXPECT_EQ(dump("title", bytes), reference_dump("title", bytes)) << size;
  }
}

TEST_F(BufferDump, PrintsTheLongestBuffers) {
  Random random(2);
  for (const size_t size : {4095u, 4096u, 32767u, 32768u, 65520u, 65535u}) {
    const Bytes bytes = random.bytes(size);
    EXPECT_TRUE(dump("title", bytes) == reference_dump("title", bytes)) << size;
  }
}

TEST_F(BufferDump, TakesTheTitleAsItIs) {
  EXPECT_EQ(dump("100 %d %s %n\\n", {0x25}), "\r\n100 %d %s %n\\n\n25 \n");
  EXPECT_EQ(dump("", {1}), "\r\n\n01 \n");
}

TEST_F(BufferDump, CutsATitleThatFillsTheConsolePrinter) {
  const std::string title = Random(3).text("abcdefghijklmnopqrstuvwxyz", 2000);
  // With "\r\n" and "\n", the 895 characters that mu_printf holds.
  EXPECT_EQ(dump(title.substr(0, 892), {1}), "\r\n" + title.substr(0, 892) + "\n01 \n");
  for (const size_t length : {893u, 894u, 2000u}) {
    EXPECT_EQ(dump(title.substr(0, length), {1}), "\r\n" + title.substr(0, 893) + "01 \n") << length;
  }
}

TEST_F(BufferDump, PrintsNothingForNull) {
  const uint8_t byte = 0;
  Console console;
  const mu_status_t statuses[] = {mu_buffer_dump(nullptr, &byte, 1), mu_buffer_dump("title", nullptr, 1),
                                  mu_buffer_dump("title", nullptr, 0), mu_buffer_dump(nullptr, nullptr, 0)};
  EXPECT_EQ(console.take(), "");
  for (const mu_status_t status : statuses) EXPECT_EQ(status, 1);
}
