// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "open.h"

#include "common/report.h"
#include "store.h"

namespace tarn_tools::cfg {

Opened open_any(const std::string &path) {
  Opened opened = {read_file(path), {}};
  opened.found = survey(opened.bytes);
  return opened;
}

Opened open_sound(const std::string &path) {
  Opened opened = open_any(path);
  require_sound(path, opened.found);
  return opened;
}

void save(const Place &place, const Opened &old, View image, size_t max_size) {
  const Bytes bytes = put_in_file(place.path(), old.bytes, old.image().size(), image, max_size);
  if (bytes != old.bytes) place.replace(bytes);
}

const Record *find_or_report(const std::string &path, const Survey &found, uint16_t key) {
  const Record *record = found.find(key);
  if (record == nullptr) report(path + ": no field of key " + key_name(key));
  return record;
}

}  // namespace tarn_tools::cfg
