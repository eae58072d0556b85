// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Opens a file for a command, and writes its new content.
#ifndef TARN_TOOLS_CFG_OPEN_H
#define TARN_TOOLS_CFG_OPEN_H

#include "file.h"
#include "image.h"

namespace tarn_tools::cfg {

struct Opened {
  Bytes bytes;
  Survey found;  // of `bytes`

  // Of a sound file.
  [[nodiscard]] View image() const { return View(bytes).first(static_cast<size_t>(found.image_size)); }
};

// Reads a file with any content.
Opened open_any(const std::string &path);
// Reads a file; throws a Failure if its image is damaged.
Opened open_sound(const std::string &path);

// Replaces the file's image by `image`, which may have `max_size` bytes. Does not write if no byte would change.
void save(const Place &place, const Opened &old, View image, size_t max_size);

// The field; null, after a report, if it does not exist.
const Record *find_or_report(const std::string &path, const Survey &found, uint16_t key);

}  // namespace tarn_tools::cfg

#endif
