// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The comparison of tags.

#include <gtest/gtest.h>

#include <array>

#include "tarn/crypto.h"

namespace {

using Tag = std::array<uint8_t, AES128_CMAC_MAX_TAG>;

constexpr Tag kTag = {0x07, 0x0a, 0x16, 0xb4, 0x6b, 0x4d, 0x41, 0x44, 0xf7, 0x9b, 0xdd, 0x9d, 0xd0, 0x4a, 0x28, 0x7c};

}  // namespace

TEST(TagsMatch, OnlyWhenEveryBitIsTheSame) {
  const Tag same = kTag;
  EXPECT_EQ(tarn_tags_match(kTag.data(), same.data(), kTag.size()), 1);
  for (size_t bit = 0; bit < 8 * kTag.size(); bit++) {
    Tag other = kTag;
    other[bit / 8] = static_cast<uint8_t>(other[bit / 8] ^ 1 << bit % 8);
    EXPECT_EQ(tarn_tags_match(kTag.data(), other.data(), kTag.size()), 0) << bit;
  }
}

TEST(TagsMatch, DoesNotCancelDifferencesAgainstEachOther) {
  Tag other = kTag;
  other[0] ^= 0x80;
  other[15] ^= 0x80;
  EXPECT_EQ(tarn_tags_match(kTag.data(), other.data(), kTag.size()), 0);
}

TEST(TagsMatch, LooksAtTheGivenBytesOnly) {
  Tag other = kTag;
  other[8] ^= 1;
  EXPECT_EQ(tarn_tags_match(kTag.data(), other.data(), 8), 1);
  EXPECT_EQ(tarn_tags_match(kTag.data(), other.data(), 9), 0);
  EXPECT_EQ(tarn_tags_match(kTag.data(), other.data(), 0), 1);
}
