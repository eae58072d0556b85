// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "names.h"

#include <algorithm>

namespace tarn_sim {

namespace {

constexpr std::size_t kLongest = 32;

bool is_letter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool is_inner(char c) { return is_letter(c) || (c >= '0' && c <= '9') || c == '-' || c == '_'; }

}  // namespace

Names::Names(std::uint32_t types) : types_(types) {
  const char *const built_in[] = {"", "link-up", "link-down", "traffic", "storm"};
  for (std::uint32_t type = 1; type < std::min<std::uint32_t>(types, std::size(built_in)); type++) {
    names_[type] = built_in[type];
  }
}

std::string Names::of(std::uint32_t type) const {
  const std::lock_guard lock(mutex_);
  const auto found = names_.find(type);
  return found == names_.end() ? "" : found->second;
}

std::optional<std::uint32_t> Names::find(const std::string &name) const {
  const std::lock_guard lock(mutex_);
  return find_locked(name);
}

std::optional<std::uint32_t> Names::find_locked(const std::string &name) const {
  for (const auto &[type, of_type] : names_) {
    if (of_type == name) return type;
  }
  return std::nullopt;
}

bool Names::set(std::uint32_t type, const std::string &name) {
  const std::lock_guard lock(mutex_);
  const auto other = find_locked(name);
  if (other && *other != type) return false;
  names_[type] = name;
  return true;
}

bool Names::is_name(const std::string &text) {
  return !text.empty() && text.size() <= kLongest && is_letter(text[0]) &&
         std::all_of(text.begin(), text.end(), is_inner);
}

}  // namespace tarn_sim
