#include "input.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace tarn_log {

namespace {

constexpr int kReadsMax = 8;

// A file that closes itself; standard input stays open.
class Input {
 public:
  explicit Input(const std::string &path)
      : is_ours_(path != kStandardInput), fd_(is_ours_ ? open(path.c_str(), O_RDONLY | O_CLOEXEC) : STDIN_FILENO) {}
  ~Input() {
    if (is_ours_ && fd_ >= 0) (void)close(fd_);  // read only: nothing left to lose
  }
  Input(const Input &) = delete;
  Input &operator=(const Input &) = delete;

  int fd() const { return fd_; }

 private:
  bool is_ours_;
  int fd_;
};

}  // namespace

std::string shown_name(const std::string &path) { return path == kStandardInput ? "(standard input)" : path; }

std::optional<std::string> read_all(const std::string &path, int *error) {
  const Input input(path);
  if (input.fd() < 0) {
    *error = errno;
    return std::nullopt;
  }
  std::string content;
  std::array<char, 65536> piece;
  for (;;) {
    const ssize_t got = read(input.fd(), piece.data(), piece.size());
    if (got == 0) return content;
    if (got > 0) {
      content.append(piece.data(), static_cast<std::size_t>(got));
    } else if (errno != EINTR) {
      *error = errno;
      return std::nullopt;
    }
  }
}

std::optional<std::string> read_settled(const std::string &path, int *error) {
  std::optional<std::string> last = read_all(path, error);
  for (int reads = 1; last && reads < kReadsMax; reads++) {
    std::optional<std::string> again = read_all(path, error);
    if (again == last) return last;
    last = std::move(again);
  }
  if (last) *error = 0;
  return std::nullopt;
}

}  // namespace tarn_log
