// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The log's files, loaded, written and copied in the simplest way: a reference for the tests.
#ifndef TARN_TESTS_LOG_FILE_MODEL_H
#define TARN_TESTS_LOG_FILE_MODEL_H

#include <algorithm>

#include "log/fixture.h"

namespace tarn_test {

// ---- Loading: the simplest reading of a file ------------------------------------------------------------------------

struct Loaded {
  Records records;
  bool parse_failed = false;
};

enum class Line { kLast, kEmpty, kRecord };

// The characters from `begin` up to `closing`, 16 at most; `begin` is moved after them.
inline std::string name_up_to(const std::string &line, size_t &begin, char closing) {
  std::string name;
  while (begin < line.size() && line[begin] != closing && name.size() < 16) name += line[begin++];
  if (begin < line.size() && line[begin] == closing) begin++;
  return name;
}

inline Line parse_line(const std::string &raw, const Names &names, Record &record) {
  const std::string line = raw.substr(0, raw.find('\0'));
  if (line.size() < 8 || line[4] != '-' || line[7] != '-') return Line::kLast;
  tm fields = {};
  if (sscanf(line.c_str(), "%4d-%2d-%2d %2d:%2d:%2d", &fields.tm_year, &fields.tm_mon, &fields.tm_mday, &fields.tm_hour,
             &fields.tm_min, &fields.tm_sec) != 6) {
    return Line::kLast;
  }
  fields.tm_year -= 1900;
  fields.tm_mon -= 1;
  fields.tm_isdst = 0;
  record.time = mktime(&fields);
  std::string level;
  std::string module;
  record.text.clear();
  size_t at = line.find('[');
  if (at != std::string::npos) {
    at++;
    level = name_up_to(line, at, ']');
    module = name_up_to(line, at, ':');
    record.text = line.substr(at, 255);
  }
  record.module = 0;
  while (record.module < names.size() && names[record.module] != module) record.module++;
  if (record.module == names.size()) return Line::kLast;
  record.level = 0;
  while (record.level < std::size(kLevelNames) && kLevelNames[record.level] != level) record.level++;
  if (record.level == std::size(kLevelNames)) return Line::kLast;
  return record.text.empty() ? Line::kEmpty : Line::kRecord;
}

inline Loaded load_model(const std::string &file, const std::string &marker, const Names &names, size_t ring_size) {
  Loaded loaded;
  const std::string first = file.substr(0, 512);
  if (first.size() < 9) return loaded;
  const size_t begin = first.find(marker);
  if (begin == std::string::npos || begin + marker.size() >= first.size()) return loaded;
  std::string held = first.substr(begin + marker.size());
  size_t next = first.size();
  for (bool first_round = true;; first_round = false) {
    if (!first_round || first.size() == 512) {
      const std::string chunk = file.substr(next, 512);
      if (chunk.empty()) return loaded;
      next += chunk.size();
      held += chunk;
    }
    for (size_t end; (end = held.find('\n')) != std::string::npos; held.erase(0, end + 1)) {
      if (loaded.records.size() == ring_size) return loaded;
      Record record;
      const Line line = parse_line(held.substr(0, end), names, record);
      if (line == Line::kLast) return loaded;
      if (line == Line::kRecord) loaded.records.push_back(record);
    }
    if (held.size() > 512) {
      loaded.parse_failed = true;
      return loaded;
    }
  }
}

// A record's line in a file. The text has no line ends.
inline std::string file_line(const Record &record, const Names &names) {
  tm fields = {};
  gmtime_r(&record.time, &fields);
  char stamp[64];
  snprintf(stamp, sizeof stamp, "%04d-%02d-%02d %02d:%02d:%02d", fields.tm_year + 1900, fields.tm_mon + 1,
           fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec);
  return std::string(stamp) + "[" + (record.level <= 8 ? kLevelNames[record.level] : "") + "]" +
         (record.module < names.size() ? names[record.module] : "") + ":" + record.text + "\n";
}

inline std::string file_lines(const Records &records, const Names &names) {
  std::string lines;
  for (const Record &record : records) lines += file_line(record, names);
  return lines;
}

// ---- Copies ---------------------------------------------------------------------------------------------------------

// True if the piece of a line is a record, whose time is then replaced with local time.
inline bool to_local(std::string &piece) {
  if (piece.size() < 8 || piece[4] != '-' || piece[7] != '-') return false;
  int year = 0;
  int month = 0;
  int day = 0;
  int hour = 0;
  int minute = 0;
  int second = 0;
  if (sscanf(piece.c_str(), "%4d-%2d-%2d %2d:%2d:%2d", &year, &month, &day, &hour, &minute, &second) != 6) return false;
  if (piece.find('\n') < 19 || piece.size() < 19) return false;
  if (month - 2 < 1) {
    month += 10;
    year -= 1;
  } else {
    month -= 2;
  }
  const int64_t days = int64_t{367} * month / 12 - year / 100 + year / 400 + year / 4 + day + int64_t{365} * year;
  const time_t time = ((days * 24 + hour) * 60 + minute) * 60 + second - 62164713600;
  tm local = {};
  localtime_r(&time, &local);
  char stamp[128];
  snprintf(stamp, sizeof stamp, "%04u-%02u-%02u %02u:%02u:%02u", static_cast<unsigned>(local.tm_year + 1900),
           static_cast<unsigned>(local.tm_mon + 1), static_cast<unsigned>(local.tm_mday),
           static_cast<unsigned>(local.tm_hour), static_cast<unsigned>(local.tm_min),
           static_cast<unsigned>(local.tm_sec));
  piece.replace(0, 19, stamp, 19);
  return true;
}

// The copy of a file that has no NUL. A null `module` means no filter.
inline std::string copy_model(const std::string &file, const char *module, unsigned level_count) {
  std::string copy;
  for (size_t begin = 0; begin < file.size();) {
    size_t end = file.find('\n', begin);
    end = std::min({end == std::string::npos ? file.size() : end + 1, begin + 319, file.size()});
    std::string piece = file.substr(begin, end - begin);
    begin = end;
    const bool is_record = to_local(piece);
    bool wanted = !is_record || module == nullptr;
    if (!wanted && piece.find("]" + std::string(module) + ":") != std::string::npos) {
      for (unsigned level = 0; level < std::min<unsigned>(level_count, 9); level++) {
        wanted = wanted || piece.find(kLevelNames[level]) != std::string::npos;
      }
    }
    if (wanted) copy += piece;
  }
  return copy;
}

}  // namespace tarn_test

#endif
