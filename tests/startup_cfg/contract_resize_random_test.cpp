// Resizes of random records in random images, against an image that is built anew.
#include <gtest/gtest.h>

#include <random>

#include "startup_cfg/contract_reference.h"

using namespace tarn_reference;

namespace {

TEST(ResizeRandomContract, HoldsForAnyRecordOfAnySmallImage) {
  std::mt19937 random(4711);
  for (int round = 0; round < 1500; round++) {
    SCOPED_TRACE(round);
    std::vector<Record> records;
    const size_t count = 1 + random() % 6;
    for (size_t i = 0; i < count; i++) {
      Bytes value(1 + random() % 40);
      for (uint8_t &byte : value) byte = static_cast<uint8_t>(random());
      records.push_back({static_cast<uint16_t>(i), value});
    }
    const size_t at = random() % count;
    const size_t old_len = records[at].value.size();
    const size_t new_len = 1 + random() % 60;
    if (new_len == old_len) continue;
    Bytes data(1 + random() % new_len);
    for (uint8_t &byte : data) byte = static_cast<uint8_t>(random());

    const Bytes before = with_room(build(records), new_len > old_len ? new_len - old_len : 0, 0xCC);
    const size_t old_size = image_size(before);
    const size_t new_size = old_size - old_len + new_len;

    // The new image, cut to the bytes that are written, over the old one; old length in the header, old seal.
    records[at].value = data;
    records[at].value.resize(new_len);
    const Bytes resized = build(records);
    Bytes expected = before;
    std::copy(resized.begin() + 16, resized.end(), expected.begin() + 16);
    seal(expected, old_size);

    const Store store(before);
    ASSERT_EQ(store.load(), 0);
    ASSERT_EQ(tlv_write_buffer(store.inst(), static_cast<uint16_t>(at), static_cast<uint32_t>(new_len),
                               static_cast<int32_t>(data.size()), data.data()),
              0);
    ASSERT_EQ(store.bytes(), expected);
    ASSERT_EQ(saves.size(), 1u);
    ASSERT_EQ(saves[0].bytes, Bytes(expected.begin(), expected.begin() + static_cast<ptrdiff_t>(new_size)));
  }
}

}  // namespace
