#include <gtest/gtest.h>

#include "startup_cfg/contract_reference.h"
#include "support/console.h"

using namespace tarn_reference;
using tarn_test::Console;

namespace {

constexpr uint16_t kChar = 1;
constexpr uint16_t kShort = 0x0203;
constexpr uint16_t kInt = 0x8004;
constexpr uint16_t kText = 0xFFFF;
constexpr uint16_t kThreeBytes = 7;
constexpr uint16_t kAbsent = 0x0302;  // kShort's bytes the other way round

const std::vector<Record> kFields = {{kChar, {0x9A}},
                                     {kShort, {0x12, 0x34}},
                                     {kInt, {0x89, 0xAB, 0xCD, 0xEF}},
                                     {kText, {'t', 'a', 'r', 'n', 0, 0, 0, 0}},
                                     {kThreeBytes, {5, 6, 7}}};

// The four readers in one shape: an output that is left alone unless they succeed.
struct Reader {
  const char *name;
  int64_t (*read)(const tlv_inst *inst, uint16_t type, void *out);
};

const Reader kReaders[] = {
    {"char",
     [](const tlv_inst *inst, uint16_t type, void *out) -> int64_t {
       return tlv_read_char(inst, type, static_cast<uint8_t *>(out));
     }},
    {"short",
     [](const tlv_inst *inst, uint16_t type, void *out) -> int64_t {
       return tlv_read_short(inst, type, static_cast<uint16_t *>(out));
     }},
    {"int",
     [](const tlv_inst *inst, uint16_t type, void *out) -> int64_t {
       return tlv_read_int(inst, type, static_cast<uint32_t *>(out));
     }},
    {"buffer",
     [](const tlv_inst *inst, uint16_t type, void *out) -> int64_t { return tlv_read_buffer(inst, type, 8, out); }},
};

int64_t failure_of(const Reader &reader) { return std::string(reader.name) == "buffer" ? 0 : -1; }

void expect_fails(const Reader &reader, const tlv_inst *inst, uint16_t type, const std::string &message) {
  SCOPED_TRACE(reader.name);
  alignas(8) uint8_t out[8];
  memset(out, 0xEE, sizeof out);
  Console console;
  EXPECT_EQ(reader.read(inst, type, out), failure_of(reader));
  EXPECT_EQ(console.take(), message);
  EXPECT_EQ(std::count(out, out + 8, 0xEE), 8);
}

// ---- What all share -------------------------------------------------------------------------------------------------

TEST(ReadContract, FailsSilentlyForANullInstance) {
  for (const Reader &reader : kReaders) {
    expect_fails(reader, nullptr, kChar, "");
    Console console;
    EXPECT_EQ(reader.read(nullptr, kChar, nullptr), failure_of(reader));  // before the output is looked at
    EXPECT_EQ(console.take(), "");
  }
}

TEST(ReadContract, SaysThatNothingIsLoadedWithoutAnIndex) {
  const Store unloaded(build(kFields));
  const Store empty(build({}));
  ASSERT_EQ(empty.load(), 0);
  for (const Reader &reader : kReaders) {
    expect_fails(reader, unloaded.inst(), kChar, "\r\n Maybe startup-cfg hasn't been loaded.");
    expect_fails(reader, empty.inst(), kChar, "\r\n Maybe startup-cfg hasn't been loaded.");
    Console console;
    EXPECT_EQ(reader.read(unloaded.inst(), kChar, nullptr), failure_of(reader));  // before the output is looked at
    EXPECT_EQ(console.take(), kNotLoaded);
  }
}

TEST(ReadContract, RefusesANullOutput) {
  const Store store(build(kFields));
  ASSERT_EQ(store.load(), 0);
  for (const Reader &reader : kReaders) {
    SCOPED_TRACE(reader.name);
    for (const uint16_t type : {kChar, kShort, kInt, kText, kAbsent}) {  // before the field is looked up
      SCOPED_TRACE(type);
      Console console;
      EXPECT_EQ(reader.read(store.inst(), type, nullptr), failure_of(reader));
      EXPECT_EQ(console.take(), "\r\n Input an invalid parameter.");
    }
  }
}

TEST(ReadContract, FailsSilentlyForAnAbsentField) {
  const Store store(build(kFields));
  ASSERT_EQ(store.load(), 0);
  for (const Reader &reader : kReaders) expect_fails(reader, store.inst(), kAbsent, "");
}

TEST(ReadContract, FailsSilentlyForAnIndexWithoutEntries) {
  const Store store(build(kFields));
  ASSERT_EQ(store.load(), 0);
  store->field_num = 0;  // the table stays
  for (const Reader &reader : kReaders) expect_fails(reader, store.inst(), kChar, "");
}

TEST(ReadContract, FindsTheFirstOfTwoRecordsOfOneType) {
  const Store store(build({{4, {9}}, {5, {1}}, {5, {2}}}));
  ASSERT_EQ(store.load(), 0);
  uint8_t value = 0;
  EXPECT_EQ(tlv_read_char(store.inst(), 5, &value), 0);
  EXPECT_EQ(value, 1);
}

TEST(ReadContract, JudgesTheFirstOfTwoRecordsOfOneTypeAlone) {
  const Store store(build({{5, {1, 2}}, {5, {3}}}));
  ASSERT_EQ(store.load(), 0);
  uint8_t value = 0xEE;
  Console console;
  EXPECT_EQ(tlv_read_char(store.inst(), 5, &value), -1);
  EXPECT_EQ(console.take(), "\r\n Attempt to read a cfg which length is 2 into a char(type = 5).");
  EXPECT_EQ(value, 0xEE);
}

TEST(ReadContract, SkipsNullEntriesOfTheIndex) {
  const Store store(build({{5, {1}}, {6, {7}}, {5, {2}}}));
  ASSERT_EQ(store.load(), 0);
  store->field_tbl[0] = nullptr;
  uint8_t value = 0;
  EXPECT_EQ(tlv_read_char(store.inst(), 5, &value), 0);
  EXPECT_EQ(value, 2);
}

TEST(ReadContract, SeesWhatTheLatestLoadIndexedAlone) {
  const Store store(build({{5, {1}}, {6, {2}}}));
  ASSERT_EQ(store.load(), 0);
  store->field_num = 1;
  uint8_t value = 0xEE;
  EXPECT_EQ(tlv_read_char(store.inst(), 6, &value), -1);
  EXPECT_EQ(value, 0xEE);
}

TEST(ReadContract, ChangesNothingAndSavesNothing) {
  const Bytes image = build(kFields);
  const Store store(image);
  ASSERT_EQ(store.load(), 0);
  uint8_t c = 0;
  uint16_t s = 0;
  uint32_t i = 0;
  uint8_t text[8];
  EXPECT_EQ(tlv_read_char(store.inst(), kChar, &c), 0);
  EXPECT_EQ(tlv_read_short(store.inst(), kShort, &s), 0);
  EXPECT_EQ(tlv_read_int(store.inst(), kInt, &i), 0);
  EXPECT_EQ(tlv_read_buffer(store.inst(), kText, 8, text), 8u);
  EXPECT_EQ(store.bytes(), image);
  EXPECT_TRUE(saves.empty());
}

// ---- Values ---------------------------------------------------------------------------------------------------------

TEST(ReadContract, ConvertsFromBigEndianAtAnyAddress) {
  // The records stand at offsets 16, 21 and 27: the short's value at 25, the int's at 31.
  const Store store(build(kFields));
  ASSERT_EQ(store.load(), 0);
  Console console;
  uint8_t c = 0;
  EXPECT_EQ(tlv_read_char(store.inst(), kChar, &c), 0);
  EXPECT_EQ(c, 0x9A);
  uint16_t s = 0;
  EXPECT_EQ(tlv_read_short(store.inst(), kShort, &s), 0);
  EXPECT_EQ(s, 0x1234);
  uint32_t i = 0;
  EXPECT_EQ(tlv_read_int(store.inst(), kInt, &i), 0);
  EXPECT_EQ(i, 0x89ABCDEFu);
  EXPECT_EQ(console.take(), "");
}

TEST(ReadContract, ReadsAnyFieldOfTheRightSizeWhateverWroteIt) {
  const Store store(build({{1, {0x01, 0x02, 0x03, 0x04}}, {2, {0x05, 0x06}}, {3, {0x07}}}));
  ASSERT_EQ(store.load(), 0);
  uint8_t raw[4];
  EXPECT_EQ(tlv_read_buffer(store.inst(), 1, 4, raw), 4u);  // big-endian, as in the image
  EXPECT_EQ(Bytes(raw, raw + 4), (Bytes{1, 2, 3, 4}));
  EXPECT_EQ(tlv_read_buffer(store.inst(), 3, 4, raw), 1u);
  EXPECT_EQ(Bytes(raw, raw + 4), (Bytes{7, 2, 3, 4}));
}

TEST(ReadContract, NamesLengthAndTypeOfAFieldOfAnotherSize) {
  struct Row {
    const Reader &reader;
    uint16_t type;
    const char *message;
  };
  const Row rows[] = {
      {kReaders[0], kShort, "\r\n Attempt to read a cfg which length is 2 into a char(type = 515)."},
      {kReaders[0], kInt, "\r\n Attempt to read a cfg which length is 4 into a char(type = 32772)."},
      {kReaders[0], kText, "\r\n Attempt to read a cfg which length is 8 into a char(type = 65535)."},
      {kReaders[1], kChar, "\r\n Attempt to read a cfg which length is 1 into a short(type = 1 )"},
      {kReaders[1], kInt, "\r\n Attempt to read a cfg which length is 4 into a short(type = 32772 )"},
      {kReaders[1], kThreeBytes, "\r\n Attempt to read a cfg which length is 3 into a short(type = 7 )"},
      {kReaders[1], kText, "\r\n Attempt to read a cfg which length is 8 into a short(type = 65535 )"},
      {kReaders[2], kChar, "\r\n Attempt to read a cfg which length is 1 into a int(type = 1 )."},
      {kReaders[2], kShort, "\r\n Attempt to read a cfg which length is 2 into a int(type = 515 )."},
      {kReaders[2], kThreeBytes, "\r\n Attempt to read a cfg which length is 3 into a int(type = 7 )."},
      {kReaders[2], kText, "\r\n Attempt to read a cfg which length is 8 into a int(type = 65535 )."},
  };
  const Store store(build(kFields));
  ASSERT_EQ(store.load(), 0);
  for (const Row &row : rows) expect_fails(row.reader, store.inst(), row.type, row.message);
}

TEST(ReadContract, PrintsTheLongestLengthUnsigned) {
  const Store store(build({{9, Bytes(65535, 1)}}));
  ASSERT_EQ(store.load(), 0);
  expect_fails(kReaders[0], store.inst(), 9, "\r\n Attempt to read a cfg which length is 65535 into a char(type = 9).");
}

TEST(ReadContract, ReadsACharOfARecordWithoutLength) {
  // "At most 1": no load lets such a record through, but the image may change under the index.
  const Store store(build(kFields));
  ASSERT_EQ(store.load(), 0);
  store.data()[16 + 3] = 0;
  Console console;
  uint8_t value = 0;
  EXPECT_EQ(tlv_read_char(store.inst(), kChar, &value), 0);
  EXPECT_EQ(value, 0x9A);
  EXPECT_EQ(console.take(), "");
}

// ---- tlv_read_buffer ------------------------------------------------------------------------------------------------

TEST(ReadBufferContract, CopiesTheWholeValueAreaWithItsZeros) {
  const Store store(build(kFields));
  ASSERT_EQ(store.load(), 0);
  const auto exact = std::unique_ptr<uint8_t[]>(new uint8_t[8]);
  memset(exact.get(), 0xEE, 8);
  EXPECT_EQ(tlv_read_buffer(store.inst(), kText, 8, exact.get()), 8u);
  EXPECT_EQ(Bytes(exact.get(), exact.get() + 8), (Bytes{'t', 'a', 'r', 'n', 0, 0, 0, 0}));
}

TEST(ReadBufferContract, WritesNothingBehindTheValue) {
  const Store store(build(kFields));
  ASSERT_EQ(store.load(), 0);
  for (const uint32_t room : {9u, 12u, 0x80000000u, 0xFFFFFFFFu}) {  // unsigned: the largest are large
    SCOPED_TRACE(room);
    Bytes out(12, 0xEE);
    EXPECT_EQ(tlv_read_buffer(store.inst(), kText, room, out.data()), 8u);
    EXPECT_EQ(out, (Bytes{'t', 'a', 'r', 'n', 0, 0, 0, 0, 0xEE, 0xEE, 0xEE, 0xEE}));
  }
}

TEST(ReadBufferContract, RefusesABufferThatIsTooShort) {
  const Store store(build(kFields));
  ASSERT_EQ(store.load(), 0);
  for (const uint32_t room : {1u, 4u, 7u}) {
    SCOPED_TRACE(room);
    Bytes out(8, 0xEE);
    Console console;
    EXPECT_EQ(tlv_read_buffer(store.inst(), kText, room, out.data()), 0u);
    EXPECT_EQ(console.take(), "\r\n The length of buffer is too short to store the value (type = 65535).");
    EXPECT_EQ(out, Bytes(8, 0xEE));
  }
}

TEST(ReadBufferContract, RefusesALengthOfZeroBeforeItLooksForTheField) {
  const Store store(build(kFields));
  ASSERT_EQ(store.load(), 0);
  uint8_t out = 0xEE;
  for (const uint16_t type : {kChar, kAbsent}) {
    SCOPED_TRACE(type);
    Console console;
    EXPECT_EQ(tlv_read_buffer(store.inst(), type, 0, &out), 0u);
    EXPECT_EQ(console.take(), "\r\n Input an invalid parameter.");
    EXPECT_EQ(out, 0xEE);
  }
}

TEST(ReadBufferContract, SaysThatNothingIsLoadedBeforeItLooksAtTheLength) {
  const Store unloaded(build(kFields));
  uint8_t out = 0;
  Console console;
  EXPECT_EQ(tlv_read_buffer(unloaded.inst(), kChar, 0, &out), 0u);
  EXPECT_EQ(console.take(), kNotLoaded);
}

TEST(ReadBufferContract, ReadsTheLongestField) {
  Bytes value(65535);
  for (size_t i = 0; i < value.size(); i++) value[i] = static_cast<uint8_t>(i * 7 + i / 256);
  const Store store(build({{1, {1}}, {2, value}}));
  ASSERT_EQ(store.load(), 0);
  Bytes out(65535);
  EXPECT_EQ(tlv_read_buffer(store.inst(), 2, 65535, out.data()), 65535u);
  EXPECT_EQ(out, value);
}

}  // namespace
