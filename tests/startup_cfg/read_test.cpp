// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Typed reads.

#include "startup_cfg/fixture.h"

using namespace tarn_test;

namespace {

constexpr uint16_t kChar = 1;
constexpr uint16_t kShort = 0x0203;
constexpr uint16_t kInt = 0x8004;
constexpr uint16_t kText = 0xFFFF;
constexpr uint16_t kThreeBytes = 7;
constexpr uint16_t kAbsent = 0x0302;  // kShort's bytes in the other order

const Records kMixed = {{kChar, {0x9A}},
                        {kShort, {0x12, 0x34}},
                        {kInt, {0x89, 0xAB, 0xCD, 0xEF}},
                        {kText, {'t', 'a', 'r', 'n', 0, 0, 0, 0}},
                        {kThreeBytes, {5, 6, 7}}};

// The four readers in one shape: an output that is written only if they succeed.
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

class TlvRead : public testing::Test {
 protected:
  TlvRead() { store_.load(); }

  const Bytes image_ = build(kMixed);
  const Store store_{image_};
};

using TlvReadBuffer = TlvRead;

}  // namespace

// ---- All readers ----------------------------------------------------------------------------------------------------

TEST_F(TlvRead, ChecksItsArgumentsInOrder) {
  const Store unloaded(image_);
  const Store empty(build({}));
  ASSERT_EQ(empty.load(), 0);
  const Store without_entries(image_);
  ASSERT_EQ(without_entries.load(), 0);
  without_entries->field_num = 0;  // the table stays
  const struct {
    const char *why;
    const tlv_inst *inst;
    uint16_t type;
    bool has_output;
    std::string message;
  } rows[] = {
      {"null instance", nullptr, kChar, true, ""},
      {"null instance before null output", nullptr, kChar, false, ""},
      {"not loaded", unloaded.inst(), kChar, true, kNotLoaded},
      {"not loaded before null output", unloaded.inst(), kChar, false, kNotLoaded},
      {"loaded without records", empty.inst(), kChar, true, kNotLoaded},
      {"null output", store_.inst(), kChar, false, kInvalid},
      {"null output before the size", store_.inst(), kThreeBytes, false, kInvalid},
      {"null output before the look-up", store_.inst(), kAbsent, false, kInvalid},
      {"absent field", store_.inst(), kAbsent, true, ""},
      {"index without entries", without_entries.inst(), kChar, true, ""},
  };
  for (const auto &row : rows) {
    for (const Reader &reader : kReaders) {
      SCOPED_TRACE(testing::Message() << row.why << ", " << reader.name);
      if (row.has_output) {
        expect_fails(reader, row.inst, row.type, row.message);
      } else {
        Console console;
        EXPECT_EQ(reader.read(row.inst, row.type, nullptr), failure_of(reader));
        EXPECT_EQ(console.take(), row.message);
      }
    }
  }
}

// The records start at offsets 16, 21 and 27: the short's value at 25, the int's at 31.
TEST_F(TlvRead, ConvertsFromBigEndianAtAnyAddressAndChangesNothing) {
  Console console;
  uint8_t c = 0;
  EXPECT_EQ(tlv_read_char(store_.inst(), kChar, &c), 0);
  EXPECT_EQ(c, 0x9A);
  uint16_t s = 0;
  EXPECT_EQ(tlv_read_short(store_.inst(), kShort, &s), 0);
  EXPECT_EQ(s, 0x1234);
  uint32_t i = 0;
  EXPECT_EQ(tlv_read_int(store_.inst(), kInt, &i), 0);
  EXPECT_EQ(i, 0x89ABCDEFu);
  const Guarded exact(8);
  EXPECT_EQ(tlv_read_buffer(store_.inst(), kText, 8, exact.bytes()), 8u);
  EXPECT_EQ(Bytes(exact.bytes(), exact.bytes() + 8), (Bytes{'t', 'a', 'r', 'n', 0, 0, 0, 0}));
  EXPECT_EQ(console.take(), "");
  EXPECT_EQ(store_.bytes(), image_);
  EXPECT_TRUE(saves.empty());
}

TEST_F(TlvRead, NamesLengthAndTypeOfAFieldOfAnotherSize) {
  const struct {
    const Reader &reader;
    uint16_t type;
    const char *message;
  } rows[] = {
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
  for (const auto &row : rows) expect_fails(row.reader, store_.inst(), row.type, row.message);
}

TEST_F(TlvRead, TakesACharOfARecordWithoutLength) {
  // "At most 1": no load accepts such a record, but the image may change after it was indexed.
  store_.data()[16 + 3] = 0;
  Console console;
  uint8_t value = 0;
  EXPECT_EQ(tlv_read_char(store_.inst(), kChar, &value), 0);
  EXPECT_EQ(value, 0x9A);
  EXPECT_EQ(console.take(), "");
}

// ---- tlv_read_buffer ------------------------------------------------------------------------------------------------

TEST_F(TlvReadBuffer, GivesTheWholeValueAreaWithItsZerosAndNothingAfterIt) {
  for (const uint32_t room : {8u, 9u, 12u, 0x80000000u, 0xFFFFFFFFu}) {  // unsigned: the largest are large
    SCOPED_TRACE(room);
    Bytes out(12, 0xEE);
    EXPECT_EQ(tlv_read_buffer(store_.inst(), kText, room, out.data()), 8u);
    EXPECT_EQ(out, (Bytes{'t', 'a', 'r', 'n', 0, 0, 0, 0, 0xEE, 0xEE, 0xEE, 0xEE}));
  }
  uint8_t number[5] = {0, 0, 0, 0, 0xEE};
  EXPECT_EQ(tlv_read_buffer(store_.inst(), kInt, 5, number), 4u);  // big-endian, as in the image
  EXPECT_EQ(Bytes(number, number + 5), (Bytes{0x89, 0xAB, 0xCD, 0xEF, 0xEE}));
}

TEST_F(TlvReadBuffer, RefusesABufferThatIsTooShort) {
  for (const uint32_t room : {1u, 4u, 7u}) {
    SCOPED_TRACE(room);
    Bytes out(8, 0xEE);
    Console console;
    EXPECT_EQ(tlv_read_buffer(store_.inst(), kText, room, out.data()), 0u);
    EXPECT_EQ(console.take(), "\r\n The length of buffer is too short to store the value (type = 65535).");
    EXPECT_EQ(out, Bytes(8, 0xEE));
  }
}

TEST_F(TlvReadBuffer, AnswersALengthOfZeroAsANullBuffer) {
  const Store unloaded(image_);
  const struct {
    const Store &store;
    uint16_t type;
    const std::string &message;
  } rows[] = {{store_, kChar, kInvalid}, {store_, kAbsent, kInvalid}, {unloaded, kChar, kNotLoaded}};
  for (const auto &row : rows) {
    uint8_t out = 0xEE;
    Console console;
    EXPECT_EQ(tlv_read_buffer(row.store.inst(), row.type, 0, &out), 0u);
    EXPECT_EQ(console.take(), row.message);
    EXPECT_EQ(out, 0xEE);
  }
}

TEST_F(TlvReadBuffer, ReadsTheLongestField) {
  Bytes value(65535);
  for (size_t i = 0; i < value.size(); i++) value[i] = static_cast<uint8_t>(i * 7 + i / 256);
  const Store store(build({{1, {1}}, {2, value}}));
  ASSERT_EQ(store.load(), 0);
  Bytes out(65535);
  EXPECT_EQ(tlv_read_buffer(store.inst(), 2, 65535, out.data()), 65535u);
  EXPECT_EQ(out, value);
  expect_fails(kReaders[0], store.inst(), 2, "\r\n Attempt to read a cfg which length is 65535 into a char(type = 2).");
}
