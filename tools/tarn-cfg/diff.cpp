// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// diff: the header's values, then the fields by key. Of several fields with one key the first is compared with the
// first, the second with the second. Checksums and the bytes after the images are not compared.

#include "diff.h"

#include <algorithm>
#include <map>
#include <utility>

#include "commands.h"
#include "common/output.h"
#include "common/report.h"
#include "json.h"
#include "open.h"
#include "value.h"

namespace tarn_tools::cfg {

namespace {

// Identifies a field: its key, and the number of fields with that key before it.
using Name = std::pair<uint16_t, size_t>;

struct Fields {
  std::vector<Name> order;
  std::map<Name, View> values;
};

Fields fields_of(const Survey &found) {
  Fields fields;
  std::map<uint16_t, size_t> seen;
  for (const Record &record : found.records) {
    const Name name = {record.key, seen[record.key]++};
    fields.order.push_back(name);
    fields.values[name] = record.value;
  }
  return fields;
}

// The names of `fields` that `others` has too.
std::vector<Name> common(const Fields &fields, const Fields &others) {
  std::vector<Name> names;
  std::copy_if(fields.order.begin(), fields.order.end(), std::back_inserter(names),
               [&](const Name &name) { return others.values.contains(name); });
  return names;
}

void compare_headers(const Survey &a, const Survey &b, std::vector<Difference> &found) {
  for (const HeaderValue value : kHeaderValues) {
    const uint32_t before = read_header(a.header, value);
    const uint32_t after = read_header(b.header, value);
    if (before != after) found.push_back({name_of(value), std::to_string(before), std::to_string(after)});
  }
}

void compare_fields(const Fields &a, const Fields &b, std::vector<Difference> &found) {
  for (const Name &name : a.order) {
    const View before = a.values.at(name);
    const auto other = b.values.find(name);
    if (other == b.values.end()) {
      found.push_back({key_name(name.first), describe(before), {}});
    } else if (!std::equal(before.begin(), before.end(), other->second.begin(), other->second.end())) {
      found.push_back({key_name(name.first), describe(before), describe(other->second)});
    }
  }
  for (const Name &name : b.order) {
    if (!a.values.contains(name)) found.push_back({key_name(name.first), {}, describe(b.values.at(name))});
  }
}

std::string keys(const std::vector<Name> &names) {
  std::string text;
  for (const Name &name : names) text += (text.empty() ? "" : " ") + key_name(name.first);
  return text;
}

void print_difference(const Difference &difference) {
  const char sign = !difference.after ? '-' : !difference.before ? '+' : '!';
  print_line(std::string(1, sign) + " " + difference.what + ": " + difference.before.value_or("") +
             (sign == '!' ? " -> " : "") + difference.after.value_or(""));
}

}  // namespace

std::vector<Difference> differences(const Survey &a, const Survey &b) {
  std::vector<Difference> found;
  compare_headers(a, b, found);
  const Fields before = fields_of(a);
  const Fields after = fields_of(b);
  compare_fields(before, after, found);
  const std::vector<Name> order_before = common(before, after);
  const std::vector<Name> order_after = common(after, before);
  if (order_before != order_after) found.push_back({"order", keys(order_before), keys(order_after)});
  return found;
}

int diff(const Options &options) {
  const Opened a = open_sound(options.file);
  const Opened b = open_sound(options.other);
  const std::vector<Difference> found = differences(a.found, b.found);
  if (options.json) {
    print(differences_json(found));
  } else {
    for (const Difference &difference : found) print_difference(difference);
  }
  return found.empty() ? kDone : kNotSo;
}

}  // namespace tarn_tools::cfg
