// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Writes of fields of one, two and four bytes, beyond what all writers do.

#include "startup_cfg/fixture.h"

using namespace tarn_test;

TEST(TlvWriteFixed, RefusesAFieldOfAnotherSizeAndNamesItsSize) {
  const Bytes image =
      with_room(build({{1, {1}}, {2, {1, 2}}, {4, {1, 2, 3, 4}}, {3, {1, 2, 3}}, {9, Bytes(65535)}}), 20);
  const Store store(image);
  ASSERT_EQ(store.load(), 0);
  for (const auto &[type, size] : {std::pair<uint16_t, size_t>{1, 1}, {2, 2}, {4, 4}, {3, 3}, {9, 65535}}) {
    for (const Writer &writer : kNumberWriters) {
      if (writer.size == size) continue;
      SCOPED_TRACE(testing::Message() << writer.name << " to " << size << " bytes");
      Console console;
      EXPECT_EQ(writer.write(store.inst(), type, 0x55555555), -1);
      EXPECT_EQ(console.take(), "\r\n This type tlv should be " + std::to_string(size) + " bytes length.");
      EXPECT_EQ(store.bytes(), image);
      EXPECT_TRUE(saves.empty());
    }
  }
}

TEST(TlvWriteFixed, StoresEveryTypeAndValueAtTheExtremes) {
  const Store store{Bytes(43)};
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_char(store.inst(), 0, 0xFF), 0);
  EXPECT_EQ(tlv_write_short(store.inst(), 0xFFFF, 0xFFFF), 0);
  EXPECT_EQ(tlv_write_int(store.inst(), 0x00FF, 0xFFFFFFFFu), 0);
  EXPECT_EQ(tlv_write_int(store.inst(), 0xFF00, 0), 0);
  EXPECT_EQ(store.bytes(),
            build({{0, {0xFF}}, {0xFFFF, {0xFF, 0xFF}}, {0x00FF, {0xFF, 0xFF, 0xFF, 0xFF}}, {0xFF00, {0, 0, 0, 0}}}));
}

TEST(TlvWriteFixed, StoresWhatTheReadersGive) {
  const Store store{Bytes(100)};
  ASSERT_EQ(store.load(), 0);
  for (const uint32_t value : {0x56789ABCu, 0xFFFEFDFCu}) {  // appended, then in place
    for (const Writer &writer : kNumberWriters) writer.write(store.inst(), static_cast<uint16_t>(writer.size), value);
    uint8_t c = 0;
    uint16_t s = 0;
    uint32_t i = 0;
    EXPECT_EQ(tlv_read_char(store.inst(), 1, &c), 0);
    EXPECT_EQ(tlv_read_short(store.inst(), 2, &s), 0);
    EXPECT_EQ(tlv_read_int(store.inst(), 4, &i), 0);
    EXPECT_EQ(c, value & 0xFF);
    EXPECT_EQ(s, value & 0xFFFF);
    EXPECT_EQ(i, value);
  }
}
