// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Files that have their old or their new content after a loss of power.
#ifndef TARN_TOOLS_CFG_FILE_H
#define TARN_TOOLS_CFG_FILE_H

#include <sys/stat.h>

#include "image.h"

namespace tarn_tools::cfg {

constexpr uint32_t kMaxFileSize = uint32_t{64} << 20;

// Reads a whole regular file. Throws a Failure if it cannot be read, is larger than kMaxFileSize, or is not a regular
// file.
Bytes read_file(const std::string &path);

// Standard input up to its end for "-", else a file.
Bytes read_input(const std::string &path);

// The place of a file, with a lock on its folder: no other tarn-cfg changes a file there as long as this object lives.
// Symbolic links are followed: the file is replaced, not the link.
class Place {
 public:
  // Throws a Failure if the folder cannot be opened.
  explicit Place(std::string path);
  ~Place();
  Place(const Place &) = delete;
  Place &operator=(const Place &) = delete;

  [[nodiscard]] const std::string &path() const { return path_; }
  [[nodiscard]] bool exists() const;

  // These throw a Failure if they fail; the file is then unchanged.
  // Replaces the existing file by `bytes`; mode and owner stay.
  void replace(View bytes) const;
  // Makes a file that only its owner can read. False if a file with this name exists; it is not changed.
  [[nodiscard]] bool make(View bytes) const;
  // Whether a file beside it has its name with that suffix.
  [[nodiscard]] bool has_beside(const std::string &suffix) const;
  // Puts `bytes` into a new file beside it with its name and that suffix, and with its mode and owner. Returns the new
  // path.
  [[nodiscard]] std::string keep(View bytes, const std::string &suffix) const;

 private:
  // Properties that a new file gets from an existing one.
  using Like = const struct stat *;

  void write_temporary(View bytes, Like like) const;
  [[nodiscard]] struct stat status() const;
  [[nodiscard]] bool make_as(View bytes, const std::string &name, Like like) const;
  void sync_folder() const;
  [[noreturn]] void give_up(const char *what) const;

  std::string path_;  // as the user gave it, for messages
  std::string folder_path_;
  std::string name_;       // in the folder
  std::string temporary_;  // in the folder, the bytes while they are written
  int folder_;
};

}  // namespace tarn_tools::cfg

#endif
