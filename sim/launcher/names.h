// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The names of event types. Every thread may use them.
#ifndef TARN_SIM_LAUNCHER_NAMES_H
#define TARN_SIM_LAUNCHER_NAMES_H

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

namespace tarn_sim {

class Names {
 public:
  // `types`: how many event types there are.
  explicit Names(std::uint32_t types);

  std::uint32_t types() const { return types_; }

  // The name of a type; empty if it has none.
  std::string of(std::uint32_t type) const;
  std::optional<std::uint32_t> find(const std::string &name) const;

  // Replaces a type's earlier name. False if another type has the name.
  bool set(std::uint32_t type, const std::string &name);

  // A letter, then letters, digits, '-' and '_'; 32 characters at most.
  static bool is_name(const std::string &text);

 private:
  std::optional<std::uint32_t> find_locked(const std::string &name) const;

  std::uint32_t types_;
  mutable std::mutex mutex_;
  std::map<std::uint32_t, std::string> names_;
};

}  // namespace tarn_sim

#endif
