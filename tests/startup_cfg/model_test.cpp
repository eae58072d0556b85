// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Long random sequences of operations, each step compared with a model that keeps a list of records and builds the
// image from it anew.

#include "startup_cfg/fixture.h"
#include "support/random.h"
#include "support/thinning.h"

using namespace tarn_test;

namespace {

struct Step {
  int64_t result = 0;
  std::string message;
  bool saves_image = false;
};

// The documented behaviour, without resizes.
class Model {
 public:
  Model(const Bytes &buffer, size_t max_size) : buffer_(buffer), max_size_(max_size) {}

  Bytes image() const {
    Bytes image = build(records_, header_);
    if (!sealed_) put(image, 4, 2, 0);
    return image;
  }
  Bytes buffer() const {  // bytes that no image has reached do not change
    const Bytes now = image();
    Bytes buffer = buffer_;
    std::copy(now.begin(), now.end(), buffer.begin());
    return buffer;
  }
  std::vector<size_t> index() const {
    std::vector<size_t> at;
    size_t next = 16;
    for (size_t i = 0; i < indexed_; i++) {
      at.push_back(next);
      next += 4 + records_[i].value.size();
    }
    return at;
  }
  const Record *find(uint16_t type) const {
    for (size_t i = 0; i < indexed_; i++)
      if (records_[i].type == type) return &records_[i];
    return nullptr;
  }

  Step load() {
    if (area() + 16 > max_size_) return {-1, "", false};
    sealed_ = true;
    indexed_ = records_.size();
    return {};
  }
  Step reopen() {
    indexed_ = 0;
    return load();
  }
  Step write_number(uint16_t type, const Bytes &value) {
    Record *record = find(type);
    if (record == nullptr) {
      if (area() + 4 + value.size() > max_size_) return {-1, "", false};
      return append({type, value});
    }
    if (record->value.size() != value.size())
      return {-1, "\r\n This type tlv should be " + std::to_string(record->value.size()) + " bytes length.", false};
    return overwrite(*record, value);
  }
  Step write_buffer(uint16_t type, size_t max_len, Bytes value) {
    value.resize(max_len);
    Record *record = find(type);
    if (record != nullptr) return overwrite(*record, value);
    const size_t longer = area() + 4 + max_len;
    if (longer > max_size_)
      return {-1, "new cfg len " + std::to_string(longer) + " > max len " + std::to_string(max_size_) + " \n", false};
    return append({type, value});
  }
  Step read_number(uint16_t type, size_t size, uint32_t &value) const {
    if (indexed_ == 0) return {-1, kNotLoaded, false};
    const Record *record = find(type);
    if (record == nullptr) return {-1, "", false};
    const size_t len = record->value.size();
    if (len == size) {
      value = get(record->value, 0, size);
      return {};
    }
    const std::string start = "\r\n Attempt to read a cfg which length is " + std::to_string(len) + " into a ";
    const std::string number = std::to_string(type);
    if (size == 1) return {-1, start + "char(type = " + number + ").", false};
    if (size == 2) return {-1, start + "short(type = " + number + " )", false};
    return {-1, start + "int(type = " + number + " ).", false};
  }
  Step read_buffer(uint16_t type, size_t room, Bytes &value) const {
    if (indexed_ == 0) return {0, kNotLoaded, false};
    const Record *record = find(type);
    if (record == nullptr) return {0, "", false};
    if (room < record->value.size())
      return {0, "\r\n The length of buffer is too short to store the value (type = " + std::to_string(type) + ").",
              false};
    value = record->value;
    return {static_cast<int64_t>(value.size()), "", false};
  }
  Step write_header(Header header, bool saves_image) {
    header_ = header;
    sealed_ = true;
    return {0, "", saves_image};
  }
  const Header &header() const { return header_; }

 private:
  Record *find(uint16_t type) { return const_cast<Record *>(static_cast<const Model *>(this)->find(type)); }
  size_t area() const {
    size_t size = 0;
    for (const Record &record : records_) size += 4 + record.value.size();
    return size;
  }
  Step overwrite(Record &record, const Bytes &value) {
    record.value = value;
    sealed_ = true;
    return {0, "", true};
  }
  Step append(const Record &record) {
    records_.push_back(record);
    sealed_ = false;
    (void)load();  // its failure is not reported
    return {0, "", true};
  }

  Bytes buffer_;
  size_t max_size_;
  Records records_;
  Header header_;
  size_t indexed_ = 0;
  bool sealed_ = true;
};

class Sequence {
 public:
  Sequence(unsigned seed, size_t max_size) : random_(seed), max_size_(max_size), model_(start(), max_size) {
    store_ = std::make_unique<Store>(model_buffer_, max_size);
  }

  void run(int steps) {
    Console console;
    ASSERT_EQ(store_->load(), 0);
    ASSERT_NO_FATAL_FAILURE(compare({}, 0, console));
    for (int i = 0; i < steps; i++) {
      SCOPED_TRACE(testing::Message() << "step " << i);
      ASSERT_NO_FATAL_FAILURE(step(console));
    }
  }
  int appended_unindexed() const { return unindexed_; }

 private:
  // Noise without the magic, and the 16 bytes that an append may need after max_size.
  const Bytes &start() {
    model_buffer_ = random_.bytes(max_size_ + 16);
    model_buffer_[0] = 0;
    return model_buffer_;
  }

  uint32_t pick(uint32_t count) { return static_cast<uint32_t>(random_.below(count)); }
  uint16_t type() { return static_cast<uint16_t>(pick(10) * 0x0101); }

  void step(Console &console) {
    saves.clear();
    switch (pick(12)) {
      case 0:
      case 1:
      case 2:
        return write_number(console);
      case 3:
      case 4:
        return write_buffer(console);
      case 5:
      case 6:
        return read_number(console);
      case 7:
        return read_buffer(console);
      case 8:
        return write_header(console);
      case 9: {
        const Step stated = model_.load();
        return compare(stated, store_->load(), console);
      }
      case 10:
        return reopen(console);
      default:
        return duplicate(console);
    }
  }

  void write_number(Console &console) {
    const uint16_t key = type();
    const auto value = static_cast<uint32_t>(random_.number());
    const size_t size = size_t{1} << pick(3);
    SCOPED_TRACE(testing::Message() << "write " << size << " bytes to " << key);
    const Step stated = model_.write_number(key, big_endian(size, value));
    tlv_inst *const inst = store_->inst();
    const int32_t result = size == 1   ? tlv_write_char(inst, key, static_cast<uint8_t>(value))
                           : size == 2 ? tlv_write_short(inst, key, static_cast<uint16_t>(value))
                                       : tlv_write_int(inst, key, value);
    compare(stated, result, console);
  }

  void write_buffer(Console &console) {
    const uint16_t key = type();
    const Record *record = std::as_const(model_).find(key);
    const size_t max_len = record != nullptr ? record->value.size() : 1 + pick(24);
    const Bytes data = random_.bytes(1 + pick(static_cast<uint32_t>(max_len)));
    SCOPED_TRACE(testing::Message() << "write " << data.size() << " of " << max_len << " bytes to " << key);
    const Step stated = model_.write_buffer(key, max_len, data);
    compare(stated,
            tlv_write_buffer(store_->inst(), key, static_cast<uint32_t>(max_len), static_cast<int32_t>(data.size()),
                             data.data()),
            console);
  }

  void read_number(Console &console) {
    const uint16_t key = type();
    const size_t size = size_t{1} << pick(3);
    SCOPED_TRACE(testing::Message() << "read " << size << " bytes of " << key);
    uint32_t expected = 0x5A5A5A5A & (size == 4 ? 0xFFFFFFFFu : (1u << (8 * size)) - 1);  // kept on failure
    const Step stated = model_.read_number(key, size, expected);
    uint8_t c = 0x5A;
    uint16_t s = 0x5A5A;
    uint32_t i = 0x5A5A5A5A;
    const tlv_inst *const inst = store_->inst();
    const int32_t result = size == 1   ? tlv_read_char(inst, key, &c)
                           : size == 2 ? tlv_read_short(inst, key, &s)
                                       : tlv_read_int(inst, key, &i);
    ASSERT_EQ(size == 1 ? c : size == 2 ? s : i, expected);
    compare(stated, result, console);
  }

  void read_buffer(Console &console) {
    const uint16_t key = type();
    const size_t room = 1 + pick(24);
    SCOPED_TRACE(testing::Message() << "read " << key << " into " << room << " bytes");
    Bytes expected;
    const Step stated = model_.read_buffer(key, room, expected);
    Bytes out(room, 0x5A);
    expected.insert(expected.end(), room - expected.size(), 0x5A);
    const uint32_t result = tlv_read_buffer(store_->inst(), key, static_cast<uint32_t>(room), out.data());
    ASSERT_EQ(out, expected);
    compare(stated, result, console);
  }

  void write_header(Console &console) {
    Header header = model_.header();
    const auto value = static_cast<uint32_t>(random_.number());
    int32_t result = 0;
    const uint32_t which = pick(3);
    SCOPED_TRACE(testing::Message() << "header field " << which);
    if (which == 0) {
      header.flag = static_cast<uint8_t>(value);
      result = tlv_write_flag(store_->inst(), header.flag);
    } else if (which == 1) {
      header.active = static_cast<uint8_t>(value);
      result = tlv_write_active(store_->inst(), header.active);
    } else {
      header.version = value;
      result = tlv_write_version(store_->inst(), header.version);
    }
    compare(model_.write_header(header, which != 1), result, console);
    uint8_t flag = 0;
    ASSERT_EQ(tlv_read_flag(store_->inst(), &flag), 0);
    ASSERT_EQ(flag, header.flag);
  }

  void reopen(Console &console) {
    store_ = std::make_unique<Store>(store_->bytes(), max_size_);
    const Step stated = model_.reopen();
    compare(stated, store_->load(), console);
  }

  void duplicate(Console &console) {
    tlv_inst *const copy = tlv_inst_duplicate(store_->inst());
    const std::vector<size_t> at = model_.index();
    ASSERT_EQ(copy == nullptr, at.empty());
    if (copy != nullptr) {
      const Bytes image = model_.image();
      EXPECT_EQ(Bytes(copy->base, copy->base + image.size()), image);
      EXPECT_EQ(copy->field_num, at.size());
      for (size_t i = 0; i < at.size(); i++)
        EXPECT_EQ(reinterpret_cast<uint8_t *>(copy->field_tbl[i]), copy->base + at[i]);
      mu_free(copy->field_tbl);
      mu_free(copy->base);
      mu_free(copy);
    }
    compare({}, 0, console);
  }

  void compare(const Step &stated, int64_t result, Console &console) {
    ASSERT_EQ(result, stated.result);
    ASSERT_EQ(console.take(), stated.message);
    ASSERT_EQ(store_->bytes(), model_.buffer());
    ASSERT_EQ(store_->index(), model_.index());
    ASSERT_EQ(store_->inst()->field_tbl == nullptr, model_.index().empty());
    if (stated.saves_image) {
      ASSERT_NO_FATAL_FAILURE(expect_saved(*store_, model_.image().size()));
    }
    ASSERT_TRUE(saves.empty());
    unindexed_ += model_.index().size() < walk(model_.image()).at.size();
  }

  Random random_;
  size_t max_size_;
  Bytes model_buffer_;
  Model model_;
  std::unique_ptr<Store> store_;
  int unindexed_ = 0;
};

void run_sequences(size_t max_size, unsigned seeds, int steps) {
  for (unsigned seed = 1; seed <= seeds; seed++) {
    SCOPED_TRACE(testing::Message() << "seed " << seed << ", max_size " << max_size);
    Sequence sequence(seed, max_size);
    ASSERT_NO_FATAL_FAILURE(sequence.run(steps));
  }
}

}  // namespace

TEST(TlvModel, AgreesWithRoomForAll) { run_sequences(2000, 20 / kThinning, 400); }

TEST(TlvModel, AgreesWhereAppendsAreRefused) {
  for (const size_t max_size : {16u, 21u, 40u, 60u, 100u, 150u}) run_sequences(max_size, 15 / kThinning, 150);
}

TEST(TlvModel, AgreesAtEveryCapacity) {
  for (size_t max_size = 16; max_size < 80; max_size += kThinning) run_sequences(max_size, 2, 60);
}

TEST(TlvModel, MeetsAppendsThatAreWrittenButNotIndexed) {
  int seen = 0;
  for (unsigned seed = 1; seed <= 10; seed++) {
    Sequence sequence(seed, 60);
    ASSERT_NO_FATAL_FAILURE(sequence.run(150));
    seen += sequence.appended_unindexed();
  }
  EXPECT_GT(seen, 0);
}
