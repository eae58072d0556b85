// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The three values of the header that belong to the application.

#include "startup_cfg/fixture.h"

using namespace tarn_test;

namespace {

// The writers of the header in one shape.
struct HeaderWriter {
  const char *name;
  int32_t (*write)(tlv_inst *inst, uint32_t value);
  bool saves_image;
  Header (*header)(Header before, uint32_t value);
};

const HeaderWriter kHeaderWriters[] = {
    {"flag", [](tlv_inst *inst, uint32_t value) { return tlv_write_flag(inst, static_cast<uint8_t>(value)); }, true,
     [](Header before, uint32_t value) { return before.flag = static_cast<uint8_t>(value), before; }},
    {"active", [](tlv_inst *inst, uint32_t value) { return tlv_write_active(inst, static_cast<uint8_t>(value)); },
     false,  // on purpose
     [](Header before, uint32_t value) { return before.active = static_cast<uint8_t>(value), before; }},
    {"version", [](tlv_inst *inst, uint32_t value) { return tlv_write_version(inst, value); }, true,
     [](Header before, uint32_t value) { return before.version = value, before; }},
};

}  // namespace

TEST(TlvWriteHeader, FailsWithoutAnInstanceOrABase) {
  tlv_inst inst = {nullptr, nullptr, 0, 1000, record_save};
  saves.clear();
  for (const HeaderWriter &writer : kHeaderWriters) {
    SCOPED_TRACE(writer.name);
    Console console;
    EXPECT_EQ(writer.write(nullptr, 1), -1);
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(writer.write(&inst, 1), -1);
    EXPECT_EQ(console.take(), kNotLoaded);
    EXPECT_TRUE(saves.empty());
  }
}

TEST(TlvWriteHeader, SealsAndExceptForActiveSaves) {
  const Header before = {0x51, 0x52, 0x53545556};
  for (const Records &records : {Records{}, kThree}) {
    for (const HeaderWriter &writer : kHeaderWriters) {
      for (const uint32_t value : {0u, 1u, 0x80u, 0xA1B2C3D4u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(testing::Message() << writer.name << " " << value << ", " << records.size() << " records");
        const Store store(with_room(build(records, before), 9, 0xCC));
        ASSERT_EQ(store.load(), 0);
        tlv_field **const index = store->field_tbl;
        Console console;
        const FailingMalloc mallocs(1, 0);
        for (int time = 0; time < 2; time++) {  // an unchanged value is saved too
          EXPECT_EQ(writer.write(store.inst(), value), 0);
          EXPECT_EQ(mallocs.seen(), 0);
          EXPECT_EQ(console.take(), "");
          const Bytes image = build(records, writer.header(before, value));
          EXPECT_EQ(store.bytes(), with_room(image, 9, 0xCC));
          EXPECT_EQ(store->field_tbl, index);
          if (writer.saves_image) {
            expect_saved(store, image.size());
          } else {
            EXPECT_TRUE(saves.empty());
          }
        }
      }
    }
  }
}

// No index, no size, no save function, no magic, no checksum.
TEST(TlvWriteHeader, NeedsAndChecksNothing) {
  Bytes damaged = build(kThree);
  damaged[5] ^= 0x10;
  for (const Bytes &image : {build(kThree), damaged, Bytes(16)}) {
    for (const HeaderWriter &writer : kHeaderWriters) {
      SCOPED_TRACE(testing::Message() << writer.name << ", " << image.size() << " bytes");
      const Store store(image, 0, nullptr);  // never loaded
      Console console;
      EXPECT_EQ(writer.write(store.inst(), 0x77), 0);
      EXPECT_EQ(console.take(), "");
      Bytes expected = build(image.size() > 16 ? kThree : Records{}, writer.header({}, 0x77));
      std::copy_n(image.begin(), 4, expected.begin());
      seal(expected);
      EXPECT_EQ(store.bytes(), expected);
      EXPECT_TRUE(store.is_unloaded());
    }
  }
}

TEST(TlvWriteHeader, StoresAChecksumThatComesOutAsZero) {
  // A blank image's sum is 0x18CC; 0x18CC + 0xE733 = 0xFFFF, whose complement is 0.
  const Store store(build({}));
  EXPECT_EQ(tlv_write_version(store.inst(), 0xE733), 0);
  EXPECT_EQ(get(store.bytes(), 4, 2), 0u);
  EXPECT_EQ(store.load(), 0);
}

// ---- tlv_read_flag --------------------------------------------------------------------------------------------------

TEST(TlvReadFlag, ReadsByteSevenWithoutAnyCheck) {
  const Bytes no_image = {0, 1, 2, 3, 4, 5, 6, 0xFF, 8, 9, 10, 11, 12, 13, 14, 15};
  for (const Bytes &image : {build({}, {0x44, 0, 0x45464748}), build({}, {0x44, 1, 0x45464748}),
                             build(kThree, {0x44, 0x80, 0x45464748}), no_image}) {
    const Store store(image);  // never loaded
    uint8_t out = 0xEE;
    Console console;
    EXPECT_EQ(tlv_read_flag(store.inst(), &out), 0);
    EXPECT_EQ(out, image[7]);
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(store.bytes(), image);
    EXPECT_TRUE(saves.empty());
  }
}

TEST(TlvReadFlag, FailsWithoutAnInstanceOrABase) {
  const tlv_inst inst = {nullptr, nullptr, 0, 1000, record_save};
  uint8_t out = 0xEE;
  Console console;
  EXPECT_EQ(tlv_read_flag(nullptr, &out), -1);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(tlv_read_flag(&inst, &out), -1);
  EXPECT_EQ(console.take(), kNotLoaded);
  EXPECT_EQ(out, 0xEE);
}
