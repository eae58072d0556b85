// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// If the checksum proves what is damaged, nothing is lost. Otherwise the records must be found.
//
// A record has no mark: any four bytes may be the head of a record. The chain shows the true ones: from a true record
// on, each record ends where the next begins, up to the end. There are many ways to divide the bytes into records and
// gaps. Each record and an exact end increase the score of a way, each gap decreases it, and the way with the best
// score is used. A damaged length then costs one gap, and the records after it are found again.

#include "salvage.h"

#include <algorithm>
#include <limits>

#include "proof.h"

namespace tarn_tools::cfg {

namespace {

constexpr int32_t kForRecord = 1;
constexpr int32_t kForExactEnd = 2;
constexpr int32_t kAgainstGap = 2;
constexpr size_t kLeastGap = kHeadSize + 1;  // the smallest record

// The best way from each offset of the records' area to its end.
class Division {
 public:
  // A chain ends exactly at the end of `area`, or anywhere in the padding, which begins at `padding`.
  Division(View area, size_t padding) : area_(area), padding_(padding), best_(area.size() + 1), next_(area.size() + 1) {
    for (size_t offset = area.size() + 1; offset-- > 0;) judge(offset);
  }

  // Adds the records and gaps of the best way. `base` is the area's offset in the file.
  void collect(size_t base, Salvage *found) const {
    size_t offset = 0;
    while (offset < area_.size() && !is_exact_end(offset)) {
      if (const size_t size = record_on_way(offset)) {
        const View record = area_.subspan(offset, size);
        found->records.push_back({base + offset, get16(record.data()), record.subspan(kHeadSize)});
        offset += size;
      } else {
        const size_t after = gap_on_way(offset);
        found->gaps.push_back({base + offset, area_.subspan(offset, after - offset)});
        offset = after;
      }
    }
    found->area_end = base + offset;
  }

 private:
  bool is_exact_end(size_t offset) const { return offset == area_.size() || offset >= padding_; }

  int32_t with_record(size_t offset) const {
    const size_t size = offset < area_.size() ? record_size(area_, offset) : 0;
    return size == 0 ? std::numeric_limits<int32_t>::min() : kForRecord + best_[offset + size];
  }

  // The beginning of the best record after a gap at `offset`; the area's end if there is none.
  size_t record_after_gap(size_t offset) const {
    return offset + kLeastGap < area_.size() ? next_[offset + kLeastGap] : area_.size();
  }

  int32_t with_gap(size_t offset) const {
    const size_t after = record_after_gap(offset);
    return after == area_.size() ? 0 : with_record(after) - kAgainstGap;
  }

  void judge(size_t offset) {
    best_[offset] = is_exact_end(offset) ? kForExactEnd : std::max({0, with_record(offset), with_gap(offset)});
    const size_t later = offset < area_.size() ? next_[offset + 1] : area_.size();
    const bool is_better = later == area_.size() || with_record(offset) >= with_record(later);
    next_[offset] = static_cast<uint32_t>(with_record(offset) > 0 && is_better ? offset : later);
  }

  // The size of the record that the best way has at `offset`; 0 for a gap.
  size_t record_on_way(size_t offset) const {
    return with_record(offset) == best_[offset] ? record_size(area_, offset) : 0;
  }

  size_t gap_on_way(size_t offset) const {
    return with_gap(offset) == best_[offset] && best_[offset] > 0 ? record_after_gap(offset) : area_.size();
  }

  View area_;
  size_t padding_;
  std::vector<int32_t> best_;   // the score of the best way from an offset
  std::vector<uint32_t> next_;  // the beginning of the best record from an offset on; the area's end if there is none
};

}  // namespace

Salvage salvage(View file, const Survey &found) {
  Salvage result;
  result.length = proved_length(file, found);
  if (result.length) {
    Bytes mended(file.begin(), file.end());
    put16(mended.data() + result.length->offset + offsetof(tlv_field, max_len), result.length->length);
    for (const Record &record : survey(mended).records) {
      result.records.push_back(
          {record.offset, record.key, file.subspan(record.offset + kHeadSize, record.value.size())});
    }
    result.area_end = static_cast<size_t>(found.image_size);
    return result;
  }
  const auto stated_end = static_cast<size_t>(std::min<uint64_t>(found.image_size, file.size()));
  const std::optional<size_t> true_end = proved_end(file, found);
  const size_t end = true_end.value_or(stated_end);
  const bool is_whole = true_end || found.records_end == found.image_size;
  const size_t padding = is_whole ? end : padding_of(file);
  Division(file.subspan(kHeaderSize, end - kHeaderSize), padding - kHeaderSize).collect(kHeaderSize, &result);
  if (!is_whole && found.image_size > file.size()) {
    result.missing_bytes = static_cast<size_t>(found.image_size) - file.size();
  }
  return result;
}

}  // namespace tarn_tools::cfg
