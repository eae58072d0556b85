// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Resizes in images of 64 KiB and more, where the 16-bit size of the tail and the two halves of cfg_len show.
// All of them are deliberate: see write_buffer_resize_test.cpp.

#include "startup_cfg/fixture.h"

using namespace tarn_test;

namespace {

const uint8_t kData[] = {0xD0, 0xD1, 0xD2, 0xD3, 0xD4, 0xD5, 0xD6, 0xD7,
                         0xD8, 0xD9, 0xDA, 0xDB, 0xDC, 0xDD, 0xDE, 0xDF};

Bytes numbered(size_t size) {
  Bytes bytes(size);
  for (size_t i = 0; i < size; i++) bytes[i] = static_cast<uint8_t>(i * 13 + i / 256);
  return bytes;
}

}  // namespace

TEST(TlvResizeLarge, LeavesATailOfExactly64KiBInItsPlace) {
  // The tail's size is a 16-bit number: 4 + 65532 is 0.
  const Bytes before = build({{1, Bytes(10, 0xA1)}, {2, numbered(65532)}});
  const Store store(before);
  ASSERT_EQ(store.load(), 0);
  const FailingMalloc mallocs(1, 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), 1, 6, 2, kData), 0);
  EXPECT_EQ(mallocs.seen(), 0);
  Bytes expected = before;
  put(expected, 18, 2, 6);
  const Bytes value = {0xD0, 0xD1, 0, 0, 0, 0};  // and four old bytes of 0xA1
  std::copy(value.begin(), value.end(), expected.begin() + 20);
  seal(expected);
  EXPECT_EQ(store.bytes(), expected);  // cfg_len 0x1000E: its upper half is 1 before and after
  expect_saved(store, before.size() - 4);
}

TEST(TlvResizeLarge, MovesOnlyTheRestModulo64KiBOfALongerTail) {
  // 4 + 65532 + 4 + 3 bytes of tail: 7 as a 16-bit number.
  const Bytes before = build({{1, Bytes(10, 0xA1)}, {2, numbered(65532)}, {3, {7, 8, 9}}});
  const Store store(before);
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), 1, 6, 2, kData), 0);
  Bytes expected = before;
  put(expected, 18, 2, 6);
  std::copy(before.begin() + 30, before.begin() + 37, expected.begin() + 26);
  const Bytes value = {0xD0, 0xD1, 0, 0, 0, 0};
  std::copy(value.begin(), value.end(), expected.begin() + 20);
  seal(expected);
  EXPECT_EQ(store.bytes(), expected);
  expect_saved(store, before.size() - 4);
}

TEST(TlvResizeLarge, WritesTheUpperHalfOfALengthThatPasses64KiB) {
  // 12 + 65516 = 0xFFF8; lengthened by 16 it is 0x10008, of which 0x0001 is stored before the old 0xFFF8.
  const Bytes tail = numbered(65512);
  const Store store(with_room(build({{1, Bytes(8, 0xA1)}, {2, tail}}), 16, 0xCC));
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), 1, 24, 16, kData), 0);
  Bytes value(kData, kData + 16);
  value.resize(24);
  Bytes expected = build({{1, value}, {2, tail}});
  ASSERT_EQ(get(expected, 8, 4), 0x10008u);
  put(expected, 8, 4, 0x1FFF8);
  seal(expected, 0xFFF8 + 16);
  EXPECT_EQ(store.bytes(), expected);
  expect_saved(store, 0x10008 + 16);
}

TEST(TlvResizeLarge, WritesTheUpperHalfOfALengthThatFallsBelow64KiB) {
  // 28 + 65516 = 0x10008; shortened by 16 it is 0xFFF8, of which 0x0000 is stored before the old 0x0008.
  const Bytes tail = numbered(65512);
  const Bytes before = build({{1, Bytes(24, 0xA1)}, {2, tail}});
  const Store store(before);
  ASSERT_EQ(store.load(), 0);
  EXPECT_EQ(tlv_write_buffer(store.inst(), 1, 8, 8, kData), 0);
  Bytes expected = build({{1, Bytes(kData, kData + 8)}, {2, tail}});
  expected.insert(expected.end(), before.end() - 16, before.end());  // left over
  put(expected, 8, 4, 8);
  seal(expected, 0x10008 + 16);
  EXPECT_EQ(store.bytes(), expected);
  expect_saved(store, 0xFFF8 + 16);
}

TEST(TlvResizeLarge, TakesATailThatEndsBeforeItBeginsModulo64KiB) {
  // Records of 4 bytes at 16 and 24; a cfg_len of 8 puts the second after the end. 8 - 8 - 4 - 4 is 65528.
  Bytes image = build({{1, {1, 1, 1, 1}}, {2, {2, 2, 2, 2}}});
  const Bytes after = numbered(65528);
  image.insert(image.end(), after.begin(), after.end());
  image = with_room(image, 2, 0xCC);
  const Store store(image);
  ASSERT_EQ(store.load(), 0);
  put(image, 8, 4, 8);
  std::copy(image.begin(), image.end(), store.data());
  EXPECT_EQ(tlv_write_buffer(store.inst(), 2, 6, 6, kData), 0);
  Bytes expected(image.begin(), image.begin() + 24);
  expected.insert(expected.end(), {0, 2, 0, 6, 0xD0, 0xD1, 0xD2, 0xD3, 0xD4, 0xD5});
  expected.insert(expected.end(), after.begin(), after.end());
  seal(expected, 24);
  EXPECT_EQ(store.bytes(), expected);
  expect_saved(store, 8 + 2 + 16);
}
