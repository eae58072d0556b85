// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// The command line of a tool: its commands, options and arguments, and the functions that store their words.
#ifndef TARN_TOOLS_COMMON_COMMAND_LINE_H
#define TARN_TOOLS_COMMON_COMMAND_LINE_H

#include <functional>
#include <memory>
#include <string>

namespace CLI {
class App;
}

namespace tarn_tools {

// Stores a word; throws a UsageError if it is not valid.
using Take = std::function<void(const std::string &word)>;
// Stores the word unchanged.
Take into(std::string *text);

// The options and arguments of a command, or those of the whole program. `names` are as "-n,--lines".
class Command {
 public:
  void needed_argument(const std::string &name, const std::string &help, const Take &take);
  // Any number of arguments, in their order.
  void arguments(const std::string &name, const std::string &help, const Take &take);
  void option(const std::string &names, const std::string &value, const std::string &help, const Take &take);
  // An option that may be given several times.
  void repeated_option(const std::string &names, const std::string &value, const std::string &help, const Take &take);
  void flag(const std::string &names, const std::string &help, bool *is_given);
  // The two options cannot be given together.
  void exclude(const std::string &name, const std::string &other);

 private:
  friend class CommandLine;

  explicit Command(CLI::App *app) : app_(app) {}

  CLI::App *app_;
};

class CommandLine {
 public:
  CommandLine(const std::string &program, const std::string &what);
  ~CommandLine();
  CommandLine(const CommandLine &) = delete;
  CommandLine &operator=(const CommandLine &) = delete;

  // The options and arguments that belong to no command.
  Command program();
  // A program with commands requires one. `chosen` is called for it after its words have been stored.
  Command command(const std::string &name, const std::string &help, const std::function<void()> &chosen);
  // The text of --help; it must outlive this object. Without it the text is made from the texts of the parts.
  void set_help(const char *help);
  void set_footer(const std::string &footer);

  // False if the help or the version was requested and has been printed. Throws a UsageError.
  bool parse(int argc, const char *const *argv);

 private:
  struct Parts;

  std::unique_ptr<Parts> parts_;
};

}  // namespace tarn_tools

#endif
