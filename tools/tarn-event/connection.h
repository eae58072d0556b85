// The control socket of a running simulation.
#ifndef TARN_TOOLS_EVENT_CONNECTION_H
#define TARN_TOOLS_EVENT_CONNECTION_H

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarn_event {

// No simulation there, or it has gone.
class NoSimulation : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The simulation does not take a line: why.
class Refusal : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class Connection {
 public:
  // Throws NoSimulation.
  explicit Connection(std::string path);
  ~Connection();
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;

  // Sends a line, without its end, and returns what is answered before the closing "ok". Throws Refusal, or
  // NoSimulation when no whole answer comes.
  std::vector<std::string> ask(const std::string &line);

 private:
  [[noreturn]] void fail(const std::string &reason) const;
  void send(const std::string &bytes) const;
  std::string receive_line();

  std::string path_;
  std::string received_;
  int sock_;
};

}  // namespace tarn_event

#endif
