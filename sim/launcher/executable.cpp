// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0
#include "executable.h"

#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string_view>

#include "descriptor.h"

namespace tarn_sim {

namespace {

using Header = ElfW(Ehdr);
using Segment = ElfW(Phdr);

constexpr int kMostInterpreters = 5;  // a script's interpreter may be a script; the kernel follows no more
constexpr std::size_t kFirstLine = 255;
constexpr char kShell[] = "/bin/sh";  // execvp passes a file of unknown format to it

bool is_executable(const std::string &path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
         faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0;
}

// The file that execvp would execute; empty when there is none.
std::string find_program(const std::string &name) {
  if (name.find('/') != std::string::npos) return is_executable(name) ? name : "";
  const char *folders = getenv("PATH");
  std::istringstream path(folders != nullptr ? folders : "/bin:/usr/bin");
  std::string folder;
  while (std::getline(path, folder, ':')) {
    std::string candidate = (folder.empty() ? "." : folder) + '/' + name;
    if (is_executable(candidate)) return candidate;
  }
  return "";
}

// Deliberate: an emulator is not refused. It is a static program, but the program that it runs loads the shim. Held by
// Refused.test_an_emulator_is_not.
bool is_emulator(const std::string &program) {
  return program.compare(program.rfind('/') + 1, strlen("qemu-"), "qemu-") == 0;
}

template <typename Record>
bool read_at(const Descriptor &file, off_t offset, Record *record) {
  return pread(file.get(), record, sizeof *record, offset) == static_cast<ssize_t>(sizeof *record);
}

bool is_elf(const Descriptor &file) {
  char magic[SELFMAG];
  return read_at(file, 0, &magic) && memcmp(magic, ELFMAG, SELFMAG) == 0;
}

bool is_for_same_processor(const Header &one, const Header &other) {
  return one.e_ident[EI_CLASS] == other.e_ident[EI_CLASS] && one.e_ident[EI_DATA] == other.e_ident[EI_DATA] &&
         one.e_machine == other.e_machine;
}

bool has_loader(const Descriptor &file, const Header &header) {
  for (unsigned i = 0; i < header.e_phnum; i++) {
    Segment segment = {};
    const auto offset = static_cast<off_t>(header.e_phoff + std::size_t{i} * header.e_phentsize);
    if (read_at(file, offset, &segment) && segment.p_type == PT_INTERP) return true;
  }
  return false;
}

// Whether it runs with the rights of another user: its loader then ignores what the user preloads.
bool gains_rights(const Descriptor &file) {
  struct stat status = {};
  if (fstat(file.get(), &status) != 0) return false;
  if ((status.st_mode & S_ISUID) != 0 && status.st_uid != getuid()) return true;
  const mode_t group = S_ISGID | S_IXGRP;
  if ((status.st_mode & group) == group && status.st_gid != getgid()) return true;
  return getuid() != 0 && fgetxattr(file.get(), "security.capability", nullptr, 0) > 0;
}

std::optional<std::string> examine_elf(const Descriptor &file, const std::string &shim) {
  Header own = {};
  Header header = {};
  if (!read_at(Descriptor(open(shim.c_str(), O_RDONLY | O_CLOEXEC)), 0, &own)) return shim + ": cannot be read";
  if (!read_at(file, 0, &header)) return std::nullopt;  // cut off: execution fails
  if (!is_for_same_processor(header, own)) {
    return "is for another processor than tarn-sim: run a tarn-sim of that processor on the daemon's emulator";
  }
  if (!has_loader(file, header)) {
    return "is statically linked, so it would use this machine's own files and devices: link it dynamically";
  }
  if (gains_rights(file)) {
    return "is set-user-id or set-group-id, or has capabilities, so it would load no shim: run a copy without them";
  }
  return std::nullopt;
}

// The interpreter of a script.
std::string interpreter_of(const Descriptor &file) {
  char bytes[kFirstLine];
  const ssize_t size = pread(file.get(), bytes, sizeof bytes, 0);
  std::string_view line(bytes, size > 0 ? static_cast<std::size_t>(size) : 0);
  if (!line.starts_with("#!")) return kShell;
  line = line.substr(0, line.find('\n'));
  const std::size_t begin = line.find_first_not_of(" \t", 2);
  if (begin == std::string_view::npos) return kShell;
  line = line.substr(begin);
  return std::string(line.substr(0, line.find_first_of(std::string_view(" \t\0", 3))));
}

}  // namespace

std::optional<std::string> reason_to_refuse(const std::string &program, const std::string &shim) {
  std::string path = find_program(program);
  if (is_emulator(path)) return std::nullopt;
  std::string place;
  for (int depth = 0; depth <= kMostInterpreters && is_executable(path); depth++) {
    const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.is_open()) return place + "cannot be read, to see whether the shim can enter it";
    if (is_elf(file)) {
      const auto reason = examine_elf(file, shim);
      return reason ? std::optional(place + *reason) : std::nullopt;
    }
    path = interpreter_of(file);
    place += "its interpreter " + path + ' ';
  }
  return std::nullopt;  // execution fails, and says why
}

}  // namespace tarn_sim
