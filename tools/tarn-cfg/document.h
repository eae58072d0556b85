// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Converts files to JSON documents and back.
#ifndef TARN_TOOLS_CFG_DOCUMENT_H
#define TARN_TOOLS_CFG_DOCUMENT_H

#include "image.h"

namespace tarn_tools::cfg {

// A document from which file_from_json makes the same file, byte for byte. The file's image must be sound.
std::string file_to_json(View file, const Survey &found);

// The file that a document describes. Throws a Failure if it is not a document; `name` is for the message.
Bytes file_from_json(const std::string &name, const std::string &text);

}  // namespace tarn_tools::cfg

#endif
