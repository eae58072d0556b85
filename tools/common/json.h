// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// JSON values, which the tools write and read.
#ifndef TARN_TOOLS_COMMON_JSON_H
#define TARN_TOOLS_COMMON_JSON_H

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "report.h"

namespace tarn_tools {

class Json {
 public:
  using Array = std::vector<Json>;
  using Member = std::pair<std::string, Json>;
  using Object = std::vector<Member>;  // keeps the order of its members

  Json();  // null
  // Each converts to the corresponding JSON value; an optional without a value to null.
  // NOLINTBEGIN(google-explicit-constructor)
  Json(bool value);
  Json(std::uint64_t number);
  template <std::unsigned_integral Number>
  Json(Number number) : Json(std::uint64_t{number}) {}
  Json(double number);
  Json(std::string text);
  Json(std::string_view text);
  Json(const char *text);
  Json(Array items);
  Json(Object members);
  template <typename Value>
  Json(const std::optional<Value> &value) : Json(value ? Json(*value) : Json()) {}
  // NOLINTEND(google-explicit-constructor)
  ~Json();
  Json(const Json &other);
  Json(Json &&other) noexcept;
  Json &operator=(const Json &other);
  Json &operator=(Json &&other) noexcept;

  // Null if the value has another type.
  const bool *boolean() const;
  const std::uint64_t *number() const;  // an integer, 0 or more
  const double *other_number() const;
  const std::string *text() const;
  const Array *items() const;
  const Object *members() const;

  // The member of an object; null if there is none.
  const Json *find(std::string_view name) const;
  // Adds a member to an object.
  void add(std::string name, Json value);
  // Adds an item to an array.
  void append(Json item);
  // The one that was added last.
  Json *last_item();
  Json *last_member();

 private:
  std::variant<std::nullptr_t, bool, std::uint64_t, double, std::string, Array, Object> value_;
};

// Compiled once, in json.cpp: the code of these lists takes much of a file's compile time.
}  // namespace tarn_tools
extern template class std::vector<tarn_tools::Json>;
extern template class std::vector<tarn_tools::Json::Member>;
namespace tarn_tools {

enum class Layout : std::uint8_t { kOneLine, kIndented };

// Bytes that are not UTF-8, such as those of a letter that was cut, become U+FFFD. No line feed at the end.
std::string dump_json(const Json &json, Layout layout);

class JsonError : public Failure {
 public:
  using Failure::Failure;
};

// Reads one value and nothing else. Throws a JsonError: "at 0x10: not JSON", "at 0x10: a number that is too large",
// "nested too deep", `"flag" is there twice in one object`.
Json parse_json(const std::string &text);

}  // namespace tarn_tools

#endif
