// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "json.h"

#include <utility>

#include "common/json.h"
#include "key.h"

namespace tarn_tools::cfg {

namespace {

std::string dump(Json json) { return dump_json(json, Layout::kIndented) + "\n"; }

Json findings_to_json(const std::vector<Finding> &findings) {
  Json::Array list;
  for (const Finding &finding : findings) {
    list.push_back(Json::Object{{"offset", finding.offset}, {"text", finding.text}});
  }
  return list;
}

Json record_to_json(const Record &record) {
  return Json::Object{{"offset", record.offset},       {"key", record.key},
                      {"length", record.value.size()}, {"number", number_in(record.value)},
                      {"text", text_in(record.value)}, {"hex", hex(record.value)}};
}

}  // namespace

std::string survey_json(const std::string &path, size_t file_size, const Survey &found) {
  Json::Object json = {{"file", path}, {"size", file_size}};
  if (found.has_header) {
    json.emplace_back("image_size", found.image_size);
    json.emplace_back("magic", get32(found.header.magic));
    json.emplace_back("checksum", found.stored_checksum());
    json.emplace_back("right_checksum", found.right_checksum);
    for (const HeaderValue value : kHeaderValues) json.emplace_back(name_of(value), read_header(found.header, value));
  }
  Json::Array records;
  for (const Record &record : found.records) records.push_back(record_to_json(record));
  json.emplace_back("records", std::move(records));
  json.emplace_back("faults", findings_to_json(found.faults));
  json.emplace_back("notes", findings_to_json(found.notes));
  return dump(std::move(json));
}

std::string findings_json(const std::string &path, size_t file_size, const Survey &found) {
  return dump(Json::Object{{"file", path},
                           {"size", file_size},
                           {"sound", found.faults.empty()},
                           {"faults", findings_to_json(found.faults)},
                           {"notes", findings_to_json(found.notes)}});
}

std::string differences_json(const std::vector<Difference> &differences) {
  Json::Array list;
  for (const Difference &difference : differences) {
    list.push_back(Json::Object{{"what", difference.what}, {"before", difference.before}, {"after", difference.after}});
  }
  return dump(std::move(list));
}

}  // namespace tarn_tools::cfg
