// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The daemon writes its whole ring each time: the present state is the last one without some lines at its beginning,
// and with new ones at its end. Therefore, search for the longest end of the last state that is the beginning of the
// present one. If the present state is shorter than that end, the daemon has not written all of it yet.
//
// Lines may be equal, so a set of lines is not enough: a line that is logged again in the same second is new. Only if
// nothing fits (a daemon that has lost the end of its log), a set of lines is used.

#include "news.h"

#include <algorithm>
#include <cstdlib>
#include <map>
#include <numeric>
#include <optional>

namespace tarn_tools::log {

namespace {

constexpr std::int64_t kZoneStep = 900;            // a quarter of an hour; every zone's offset is a multiple of it
constexpr std::int64_t kZoneMax = 56 * kZoneStep;  // 14 hours

bool is_same(const Line &last, const Line &now, std::int64_t shift) {
  if (shift == 0 || !last.record || !now.record) return last.raw == now.raw;
  return now.record->time - last.record->time == shift && now.record->level == last.record->level &&
         now.record->module == last.record->module && now.record->text == last.record->text;
}

// How many lines at the beginning of the last state have vanished; nothing when the states have no line in common.
std::optional<std::size_t> vanished(const std::vector<Line> &last, const std::vector<Line> &now, std::int64_t shift) {
  for (std::size_t gone = 0; gone < last.size(); gone++) {
    const std::size_t common = std::min(last.size() - gone, now.size());
    std::size_t same = 0;
    while (same < common && is_same(last[gone + same], now[same], shift)) same++;
    if (same == common) return gone;
  }
  return std::nullopt;
}

// The shifts of times that are possible according to the first record: a daemon that restarts moves the times of its
// records by its zone's offset.
std::vector<std::int64_t> zone_shifts(const std::vector<Line> &last, const std::vector<Line> &now) {
  std::vector<std::int64_t> shifts = {0};
  if (!now.front().record) return shifts;
  for (const Line &line : last) {
    if (!line.record) continue;
    const std::int64_t shift = now.front().record->time - line.record->time;
    if (shift % kZoneStep != 0 || std::abs(shift) > kZoneMax) continue;
    if (std::find(shifts.begin(), shifts.end(), shift) == shifts.end()) shifts.push_back(shift);
  }
  return shifts;
}

std::vector<std::size_t> not_among(const std::vector<Line> &last, const std::vector<Line> &now) {
  std::map<std::string, std::size_t> left;
  for (const Line &line : last) left[line.raw]++;
  std::vector<std::size_t> fresh;
  for (std::size_t i = 0; i < now.size(); i++) {
    const auto found = left.find(now[i].raw);
    if (found == left.end() || found->second == 0) {
      fresh.push_back(i);
    } else {
      found->second--;
    }
  }
  return fresh;
}

}  // namespace

std::vector<std::size_t> News::take(const std::vector<Line> &now) {
  if (now.empty()) return {};  // cleared, or about to be written
  for (const std::int64_t shift : zone_shifts(seen_, now)) {
    const auto gone = vanished(seen_, now, shift);
    if (!gone) continue;
    const std::size_t common = seen_.size() - *gone;
    if (now.size() < common) return {};
    std::vector<std::size_t> fresh(now.size() - common);
    std::iota(fresh.begin(), fresh.end(), common);
    seen_ = now;
    return fresh;
  }
  std::vector<std::size_t> fresh = not_among(seen_, now);
  seen_ = now;
  return fresh;
}

}  // namespace tarn_tools::log
