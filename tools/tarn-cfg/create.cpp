// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// create and import: files made anew.

#include "commands.h"
#include "common/report.h"
#include "document.h"
#include "file.h"
#include "store.h"

namespace tarn_tools::cfg {

namespace {

void write_anew(const Options &options, View bytes) {
  const Place place(options.file);
  if (options.force && place.exists()) {
    place.replace(bytes);
  } else if (!place.make(bytes)) {
    fail("%s: is there; --force replaces it", options.file.c_str());
  }
}

}  // namespace

int create(const Options &options) {
  Bytes bytes = Builder(tlv_hdr{}).sealed();
  if (options.file_size) bytes.resize(*options.file_size, options.fill.value_or(0));
  write_anew(options, bytes);
  return kDone;
}

int import_json(const Options &options) {
  const Bytes text = read_input(options.other);
  const std::string name = options.other == "-" ? "standard input" : options.other;
  const Bytes bytes = file_from_json(name, std::string(text.begin(), text.end()));
  require_room(options.file, static_cast<size_t>(survey(bytes).image_size), options.max_size);
  write_anew(options, bytes);
  return kDone;
}

}  // namespace tarn_tools::cfg
