// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Built on nlohmann-json, which only this file includes: it takes longer to compile than a whole tool.

#include "json.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>

template class std::vector<tarn_tools::Json>;
template class std::vector<tarn_tools::Json::Member>;

namespace tarn_tools {

namespace {

using Library = nlohmann::ordered_json;

constexpr int kIndent = 2;
constexpr std::size_t kDepthMax = 64;  // the tools' own documents have four levels

Library library_value(const Json &json) {
  if (const bool *value = json.boolean()) return *value;
  if (const std::uint64_t *value = json.number()) return *value;
  if (const double *value = json.other_number()) return *value;
  if (const std::string *value = json.text()) return *value;
  if (const Json::Array *items = json.items()) {
    Library list = Library::array();
    for (const Json &item : *items) list.push_back(library_value(item));
    return list;
  }
  if (const Json::Object *members = json.members()) {
    Library object = Library::object();
    for (const auto &[name, value] : *members) object[name] = library_value(value);
    return object;
  }
  return nullptr;
}

// Called by the parser for each part of a text.
class Builder {
 public:
  explicit Builder(Json *root) : open_{root} {}

  bool null() { return put({}); }
  bool boolean(bool value) { return put(value); }
  bool number_integer(Library::number_integer_t value) { return put(static_cast<double>(value)); }  // a negative one
  bool number_unsigned(Library::number_unsigned_t value) { return put(std::uint64_t{value}); }
  bool number_float(Library::number_float_t value, const std::string &) { return put(value); }
  bool string(const std::string &text) { return put(text); }
  bool binary(const Library::binary_t &) { return false; }  // not in a text

  bool start_object(std::size_t) {
    names_.emplace_back();
    return open(Json(Json::Object()));
  }
  bool start_array(std::size_t) { return open(Json(Json::Array())); }
  bool end_object() {
    names_.pop_back();
    return close();
  }
  bool end_array() { return close(); }

  bool key(const std::string &name) {
    if (!names_.back().insert(name).second) {
      problem_ = "\"" + name + "\" is there twice in one object";
      return false;
    }
    name_ = name;
    return true;
  }

  bool parse_error(std::size_t position, const std::string &, const nlohmann::detail::exception &error) {
    constexpr int kOutOfRange = 406;
    if (error.id == kOutOfRange) problem_ = "a number that is too large";
    position_ = position == 0 ? 0 : position - 1;
    return false;
  }

  const std::string &problem() const { return problem_; }
  // The place of a syntax error; not known for other faults.
  std::optional<std::size_t> position() const { return position_; }

 private:
  bool put(Json value) {
    Json &parent = *open_.back();
    if (parent.items() != nullptr) {
      parent.append(std::move(value));
    } else if (parent.members() != nullptr) {
      parent.add(name_, std::move(value));
    } else {
      parent = std::move(value);
    }
    return true;
  }

  bool open(Json empty) {
    if (open_.size() > kDepthMax) {
      problem_ = "nested too deep";
      return false;
    }
    Json *parent = open_.back();
    const bool is_root = parent->items() == nullptr && parent->members() == nullptr;
    (void)put(std::move(empty));
    if (is_root) {
      open_.push_back(parent);
    } else if (parent->items() != nullptr) {
      open_.push_back(parent->last_item());
    } else {
      open_.push_back(parent->last_member());
    }
    return true;
  }

  bool close() {
    open_.pop_back();
    return true;
  }

  std::vector<Json *> open_;  // the enclosing values, outermost first; the addresses of the last ones do not change
  std::vector<std::set<std::string>> names_;  // of each enclosing object
  std::string name_;
  std::string problem_ = "not JSON";
  std::optional<std::size_t> position_;
};

std::string at(std::size_t position) { return format("at 0x%zx: ", position); }

}  // namespace

Json::Json() = default;
Json::Json(bool value) : value_(value) {}
Json::Json(std::uint64_t number) : value_(number) {}
Json::Json(double number) : value_(number) {}
Json::Json(std::string text) : value_(std::move(text)) {}
Json::Json(std::string_view text) : value_(std::string(text)) {}
Json::Json(const char *text) : value_(std::string(text)) {}
Json::Json(Array items) : value_(std::move(items)) {}
Json::Json(Object members) : value_(std::move(members)) {}
Json::~Json() = default;
Json::Json(const Json &other) = default;
Json::Json(Json &&other) noexcept = default;
Json &Json::operator=(const Json &other) = default;
Json &Json::operator=(Json &&other) noexcept = default;

const bool *Json::boolean() const { return std::get_if<bool>(&value_); }
const std::uint64_t *Json::number() const { return std::get_if<std::uint64_t>(&value_); }
const double *Json::other_number() const { return std::get_if<double>(&value_); }
const std::string *Json::text() const { return std::get_if<std::string>(&value_); }
const Json::Array *Json::items() const { return std::get_if<Array>(&value_); }
const Json::Object *Json::members() const { return std::get_if<Object>(&value_); }

const Json *Json::find(std::string_view name) const {
  const Object *object = members();
  if (object == nullptr) return nullptr;
  const auto found = std::find_if(object->begin(), object->end(), [&](const Member &one) { return one.first == name; });
  return found == object->end() ? nullptr : &found->second;
}

void Json::add(std::string name, Json value) {
  std::get<Object>(value_).emplace_back(std::move(name), std::move(value));
}

void Json::append(Json item) { std::get<Array>(value_).push_back(std::move(item)); }

Json *Json::last_item() { return &std::get<Array>(value_).back(); }

Json *Json::last_member() { return &std::get<Object>(value_).back().second; }

std::string dump_json(const Json &json, Layout layout) {
  return library_value(json).dump(layout == Layout::kIndented ? kIndent : -1, ' ', false,
                                  Library::error_handler_t::replace);
}

Json parse_json(const std::string &text) {
  // For the parser a NUL is the end, and it would drop the bytes after it.
  if (const std::size_t nul = text.find('\0'); nul != std::string::npos) throw JsonError(at(nul) + "not JSON");
  Json json;
  Builder builder(&json);
  if (Library::sax_parse(text, &builder)) return json;
  throw JsonError((builder.position() ? at(*builder.position()) : "") + builder.problem());
}

}  // namespace tarn_tools
