// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Built on CLI11, which only this file includes: it takes longer to compile than a whole tool.
//
// CLI11 gives some words a meaning of its own: "[a,b]" is a list, "{}" an empty one, "++" the end of a command, and the
// value of "--name=" is the next word. In the tools a word has no such meaning: these words are disguised before CLI11
// reads them, and "--name=" is split into the name and an empty word.

#include "command_line.h"

#include <CLI/CLI.hpp>
#include <cstring>
#include <set>
#include <vector>

#include "output.h"
#include "report.h"

namespace tarn_tools {

namespace {

constexpr char kDisguise = '\x01';
constexpr char kDisguised[] = "[{%+\x01";

std::string disguised(const std::string &word) {
  const bool needs_it = !word.empty() && strchr(kDisguised, word[0]) != nullptr;
  return needs_it ? kDisguise + word : word;
}

std::string plain(const std::string &word) { return !word.empty() && word[0] == kDisguise ? word.substr(1) : word; }

// The names of all options, as "n" and "lines".
struct Names {
  std::set<std::string> with_value;
  std::set<std::string> flags;
};

Names names_of(const CLI::App &app) {
  Names names;
  const auto add = [&names](const CLI::App *part) {
    for (const CLI::Option *option : part->get_options()) {
      auto *list = option->get_items_expected_max() == 0 ? &names.flags : &names.with_value;
      list->insert(option->get_lnames().begin(), option->get_lnames().end());
      list->insert(option->get_snames().begin(), option->get_snames().end());
    }
  };
  add(&app);
  for (const CLI::App *command : app.get_subcommands({})) add(command);
  return names;
}

// Whether the word, which begins with one dash, takes the next one as its value: "-n", and "-in" where -i is a flag.
bool ends_in_option_with_value(const std::string &word, const Names &names) {
  for (std::size_t at = 1; at < word.size(); at++) {
    if (names.with_value.count(word.substr(at, 1)) != 0) return at + 1 == word.size();
  }
  return false;
}

std::vector<std::string> words_for_cli11(int argc, const char *const *argv, const Names &names) {
  std::vector<std::string> words;
  bool is_value = false;  // of the option before it
  bool are_arguments = false;
  for (int i = 1; i < argc; i++) {
    const std::string word = argv[i];
    const bool is_option = !is_value && !are_arguments && word.size() > 1 && word[0] == '-';
    is_value = false;
    if (!is_option) {
      words.push_back(disguised(word));
    } else if (word == "--") {
      are_arguments = true;
      words.push_back(word);
    } else if (word[1] != '-') {
      is_value = ends_in_option_with_value(word, names);
      words.push_back(word);
    } else if (const std::size_t equals = word.find('='); equals != std::string::npos) {
      const std::string name = word.substr(2, equals - 2);
      if (names.flags.count(name) != 0) throw UsageError("--" + name + " takes no value");
      if (names.with_value.count(name) == 0) {
        words.push_back(word);  // CLI11 refuses it
      } else {
        words.push_back("--" + name);
        words.push_back(disguised(word.substr(equals + 1)));
      }
    } else {
      is_value = names.with_value.count(word.substr(2)) != 0;
      words.push_back(word);
    }
  }
  return words;
}

std::string complaint(const CLI::App &app, const CLI::ParseError &error) {
  const bool chose = !app.get_subcommands().empty();
  const bool has_commands = !app.get_subcommands({}).empty();
  const bool is_required = dynamic_cast<const CLI::RequiredError *>(&error) != nullptr;
  const bool is_extra = dynamic_cast<const CLI::ExtrasError *>(&error) != nullptr;
  const std::vector<std::string> unknown = app.remaining(true);
  for (const std::string &word : unknown) {
    if ((is_required || is_extra) && word.size() > 1 && word[0] == '-') return "unknown option \"" + word + "\"";
  }
  if (has_commands && !chose && !unknown.empty()) return "unknown command \"" + plain(unknown.front()) + "\"";
  if (is_extra && !unknown.empty()) return "unexpected argument \"" + plain(unknown.front()) + "\"";
  if (has_commands && !chose && is_required) return "a command is needed";
  return error.what();
}

}  // namespace

Take into(std::string *text) {
  return [text](const std::string &word) { *text = word; };
}

void Command::needed_argument(const std::string &name, const std::string &help, const Take &take) {
  app_->add_option_function<std::string>(
          name, [take](const std::string &word) { take(plain(word)); }, help)
      ->required();
}

void Command::arguments(const std::string &name, const std::string &help, const Take &take) {
  app_->add_option_function<std::vector<std::string>>(
      name,
      [take](const std::vector<std::string> &words) {
        for (const std::string &word : words) take(plain(word));
      },
      help);
}

void Command::option(const std::string &names, const std::string &value, const std::string &help, const Take &take) {
  app_->add_option_function<std::string>(
          names, [take](const std::string &word) { take(plain(word)); }, help)
      ->type_name(value);
}

void Command::repeated_option(const std::string &names, const std::string &value, const std::string &help,
                              const Take &take) {
  app_->add_option_function<std::vector<std::string>>(
          names,
          [take](const std::vector<std::string> &words) {
            for (const std::string &word : words) take(plain(word));
          },
          help)
      ->type_name(value)
      ->allow_extra_args(false);  // one word each time: the next word may be a file
}

void Command::flag(const std::string &names, const std::string &help, bool *is_given) {
  app_->add_flag_callback(
      names, [is_given] { *is_given = true; }, help);
}

void Command::exclude(const std::string &name, const std::string &other) {
  app_->get_option(name)->excludes(app_->get_option(other));
}

struct CommandLine::Parts {
  Parts(const std::string &program, const std::string &what) : app(what, program) {}

  CLI::App app;
  const char *help = nullptr;
};

CommandLine::CommandLine(const std::string &program, const std::string &what) : parts_(new Parts(program, what)) {
  parts_->app.set_help_flag("-h,--help", "Show this and end");
  parts_->app.set_version_flag("--version", program + " " + TARN_TOOLS_VERSION, "Show the version and end");
  parts_->app.fallthrough();  // the options of the program may also stand after the command
}

CommandLine::~CommandLine() = default;

Command CommandLine::program() { return Command(&parts_->app); }

Command CommandLine::command(const std::string &name, const std::string &help, const std::function<void()> &chosen) {
  parts_->app.require_subcommand(1);
  CLI::App *command = parts_->app.add_subcommand(name, help);
  command->callback(chosen);
  return Command(command);
}

void CommandLine::set_help(const char *help) { parts_->help = help; }

void CommandLine::set_footer(const std::string &footer) { parts_->app.footer(footer); }

bool CommandLine::parse(int argc, const char *const *argv) {
  CLI::App &app = parts_->app;
  std::vector<std::string> words = words_for_cli11(argc, argv, names_of(app));
  std::reverse(words.begin(), words.end());  // CLI11 takes them from the end
  try {
    app.parse(words);
    return true;
  } catch (const CLI::CallForHelp &) {
    print(parts_->help != nullptr ? parts_->help : app.help());
  } catch (const CLI::CallForVersion &version) {
    print_line(version.what());
  } catch (const CLI::ParseError &error) {
    throw UsageError(complaint(app, error));
  }
  return false;
}

}  // namespace tarn_tools
