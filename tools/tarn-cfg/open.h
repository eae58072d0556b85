// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// A file as a command finds it, and as it leaves it.
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

// Reads a file; whatever it holds.
Opened open_any(const std::string &path);
// Reads a file; throws a Failure where its image is damaged.
Opened open_sound(const std::string &path);

// Puts `image`, which may have `max_size` bytes, in the place of the file's image. What would change no byte is not
// written.
void save(const Place &place, const Opened &old, View image, size_t max_size);

// The field; null, after a report, where it is not there.
const Record *find_or_report(const std::string &path, const Survey &found, uint16_t key);

}  // namespace tarn_tools::cfg

#endif
