// The bytes of a log file.
#ifndef TARN_TOOLS_LOG_INPUT_H
#define TARN_TOOLS_LOG_INPUT_H

#include <optional>
#include <string>

namespace tarn_log {

// The name that stands for standard input.
constexpr char kStandardInput[] = "-";

// The name of a file as messages show it.
std::string shown_name(const std::string &path);

// All that a file, or standard input, holds. Nothing when it cannot be read; then `error` is an errno.
std::optional<std::string> read_all(const std::string &path, int *error);

// The same of a file that may be written just now: read until it was twice the same. What the daemon has not finished
// yet is missing, but no line of one state stands behind one of another. Nothing, with an `error` of 0, while the file
// does not stand still.
std::optional<std::string> read_settled(const std::string &path, int *error);

}  // namespace tarn_log

#endif
