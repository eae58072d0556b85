// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "json.h"

#include <utility>

#include "common/json.h"
#include "levels.h"

namespace tarn_tools::log {

namespace {

Json named_counts(const Counts::List &counts) {
  Json::Object json;
  for (const auto &[name, count] : counts) json.emplace_back(name, count);
  return json;
}

std::string one_line(Json::Object members) { return dump_json(std::move(members), Layout::kOneLine); }

}  // namespace

std::string record_json(const std::string &path, std::size_t line, const Record &record, Zone zone) {
  return one_line({{"file", path},
                   {"line", line},
                   {"time", rfc3339_time(record.time, zone)},
                   {"level", level_name(record.level)},
                   {"severity", static_cast<unsigned>(record.level)},
                   {"module", record.module},
                   {"text", record.text}});
}

std::string description_json(const std::string &path, const Description &description) {
  Json::Object fields;
  for (const auto &[name, value] : description) fields.emplace_back(name, value);
  return one_line({{"file", path}, {"device", std::move(fields)}});
}

std::string counts_json(const Counts &counts) {
  return one_line(
      {{"records", counts.total}, {"levels", named_counts(counts.levels)}, {"modules", named_counts(counts.modules)}});
}

}  // namespace tarn_tools::log
