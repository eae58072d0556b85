#include <gtest/gtest.h>

#include "startup_cfg/contract_reference.h"
#include "support/console.h"
#include "support/libc.h"

using namespace tarn_reference;
using tarn_test::Console;
using tarn_test::FailingMalloc;

namespace {

const std::vector<Record> kFields = {{0x0001, {0x11}}, {0x0203, {0x22, 0x33}}};

struct Writer {
  const char *name;
  int32_t (*write)(tlv_inst *inst, uint32_t value);
  bool saves_image;
  Header (*header)(Header before, uint32_t value);
};

const Writer kWriters[] = {
    {"flag", [](tlv_inst *inst, uint32_t value) { return tlv_write_flag(inst, static_cast<uint8_t>(value)); }, true,
     [](Header before, uint32_t value) {
       before.flag = static_cast<uint8_t>(value);
       return before;
     }},
    {"active", [](tlv_inst *inst, uint32_t value) { return tlv_write_active(inst, static_cast<uint8_t>(value)); },
     false,  // on purpose
     [](Header before, uint32_t value) {
       before.active = static_cast<uint8_t>(value);
       return before;
     }},
    {"version", [](tlv_inst *inst, uint32_t value) { return tlv_write_version(inst, value); }, true,
     [](Header before, uint32_t value) {
       before.version = value;
       return before;
     }},
};

TEST(HeaderWriteContract, FailsSilentlyForANullInstance) {
  for (const Writer &writer : kWriters) {
    SCOPED_TRACE(writer.name);
    Console console;
    EXPECT_EQ(writer.write(nullptr, 1), -1);
    EXPECT_EQ(console.take(), "");
  }
}

TEST(HeaderWriteContract, SaysThatNothingIsLoadedWithoutABase) {
  for (const Writer &writer : kWriters) {
    SCOPED_TRACE(writer.name);
    tlv_inst inst = {nullptr, nullptr, 0, 1000, record_save};
    saves.clear();
    Console console;
    EXPECT_EQ(writer.write(&inst, 1), -1);
    EXPECT_EQ(console.take(), "\r\n Maybe startup-cfg hasn't been loaded.");
    EXPECT_TRUE(saves.empty());
  }
}

TEST(HeaderWriteContract, WritesItsBytesSealsAndSavesExceptForActive) {
  const Header before = {0x51, 0x52, 0x53545556};
  for (const std::vector<Record> &records : {std::vector<Record>{}, kFields}) {
    for (const Writer &writer : kWriters) {
      for (const uint32_t value : {0u, 1u, 0x80u, 0xA1B2C3D4u, 0xFFFFFFFFu}) {
        SCOPED_TRACE(testing::Message() << writer.name << " " << value << ", " << records.size() << " records");
        const Store store(with_room(build(records, before), 9, 0xCC));
        ASSERT_EQ(store.load(), 0);
        tlv_field **const index = store->field_tbl;
        Console console;
        const FailingMalloc mallocs(1, 0);
        EXPECT_EQ(writer.write(store.inst(), value), 0);
        EXPECT_EQ(mallocs.seen(), 0);
        EXPECT_EQ(console.take(), "");
        const Bytes image = build(records, writer.header(before, value));
        EXPECT_EQ(store.bytes(), with_room(image, 9, 0xCC));
        EXPECT_EQ(store->field_tbl, index);
        ASSERT_EQ(saves.size(), writer.saves_image ? 1u : 0u);
        if (writer.saves_image) {
          EXPECT_EQ(saves[0].base, store.data());
          EXPECT_EQ(saves[0].bytes, image);
        }
      }
    }
  }
}

TEST(HeaderWriteContract, NeedsNoIndexNoSizeAndNoSaveFunction) {
  for (const Writer &writer : kWriters) {
    SCOPED_TRACE(writer.name);
    const Store store(build(kFields), 0, nullptr);  // never loaded
    EXPECT_EQ(writer.write(store.inst(), 0x77), 0);
    EXPECT_EQ(store.bytes(), build(kFields, writer.header({}, 0x77)));
    EXPECT_EQ(store->field_tbl, nullptr);
  }
}

TEST(HeaderWriteContract, ChecksNothingAndSealsWhatIsThere) {
  for (const Writer &writer : kWriters) {
    SCOPED_TRACE(writer.name);
    const Store store{Bytes(16)};  // no magic
    Console console;
    EXPECT_EQ(writer.write(store.inst(), 0x77), 0);
    EXPECT_EQ(console.take(), "");
    Bytes expected = build({}, writer.header({}, 0x77));
    put(expected, 0, 4, 0);
    seal(expected);
    EXPECT_EQ(store.bytes(), expected);
  }
}

TEST(HeaderWriteContract, SealsADamagedImage) {
  for (const Writer &writer : kWriters) {
    SCOPED_TRACE(writer.name);
    Bytes image = build(kFields);
    image[5] ^= 0x10;
    const Store store(image);
    EXPECT_EQ(writer.write(store.inst(), 0x77), 0);
    EXPECT_EQ(store.bytes(), build(kFields, writer.header({}, 0x77)));
  }
}

TEST(HeaderWriteContract, SavesTheValueThatIsWrittenTwiceEachTime) {
  const Store store(build(kFields));
  EXPECT_EQ(tlv_write_flag(store.inst(), 5), 0);
  EXPECT_EQ(tlv_write_flag(store.inst(), 5), 0);
  EXPECT_EQ(saves.size(), 2u);
}

TEST(HeaderWriteContract, StoresAChecksumThatComesOutAsZero) {
  // A blank image's sum is 0x18CC; 0x18CC + 0xE733 = 0xFFFF, whose complement is 0.
  const Store store(build({}));
  EXPECT_EQ(tlv_write_version(store.inst(), 0xE733), 0);
  EXPECT_EQ(get(store.bytes(), 4, 2), 0u);
  EXPECT_EQ(store.load(), 0);
}

// ---- tlv_read_flag --------------------------------------------------------------------------------------------------

TEST(ReadFlagContract, ReadsTheFlagOfAnyImage) {
  for (const uint8_t flag : {uint8_t{0}, uint8_t{1}, uint8_t{0x80}, uint8_t{0xFF}}) {
    SCOPED_TRACE(static_cast<int>(flag));
    const Bytes image = build({}, {0x44, flag, 0x45464748});
    const Store store(image);  // never loaded
    uint8_t out = 0xEE;
    Console console;
    EXPECT_EQ(tlv_read_flag(store.inst(), &out), 0);
    EXPECT_EQ(out, flag);
    EXPECT_EQ(console.take(), "");
    EXPECT_EQ(store.bytes(), image);
    EXPECT_TRUE(saves.empty());
  }
}

TEST(ReadFlagContract, ReadsByteSevenWithoutAnyCheck) {
  const Store store(Bytes{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15});
  uint8_t out = 0;
  EXPECT_EQ(tlv_read_flag(store.inst(), &out), 0);
  EXPECT_EQ(out, 7);
}

TEST(ReadFlagContract, FailsSilentlyForANullInstance) {
  uint8_t out = 0xEE;
  Console console;
  EXPECT_EQ(tlv_read_flag(nullptr, &out), -1);
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(out, 0xEE);
}

TEST(ReadFlagContract, SaysThatNothingIsLoadedWithoutABase) {
  const tlv_inst inst = {nullptr, nullptr, 0, 1000, record_save};
  uint8_t out = 0xEE;
  Console console;
  EXPECT_EQ(tlv_read_flag(&inst, &out), -1);
  EXPECT_EQ(console.take(), "\r\n Maybe startup-cfg hasn't been loaded.");
  EXPECT_EQ(out, 0xEE);
}

}  // namespace
