#include "json.h"

#include <nlohmann/json.hpp>

#include "levels.h"

namespace tarn_log {

namespace {

using Json = nlohmann::ordered_json;

std::string one_line(const Json &json) { return json.dump(-1, ' ', false, Json::error_handler_t::replace); }

Json named_counts(const Counts::List &counts) {
  Json json = Json::object();
  for (const auto &[name, count] : counts) json[name] = count;
  return json;
}

}  // namespace

std::string record_json(const std::string &path, std::size_t line, const Record &record, Zone zone) {
  Json json;
  json["file"] = path;
  json["line"] = line;
  json["time"] = rfc3339_time(record.time, zone);
  json["level"] = level_name(record.level);
  json["severity"] = record.level;
  json["module"] = record.module;
  json["text"] = record.text;
  return one_line(json);
}

std::string description_json(const std::string &path, const Description &description) {
  Json fields = Json::object();
  for (const auto &[name, value] : description) fields[name] = value;
  Json json;
  json["file"] = path;
  json["device"] = std::move(fields);
  return one_line(json);
}

std::string counts_json(const Counts &counts) {
  Json json;
  json["records"] = counts.total;
  json["levels"] = named_counts(counts.levels);
  json["modules"] = named_counts(counts.modules);
  return one_line(json);
}

}  // namespace tarn_log
