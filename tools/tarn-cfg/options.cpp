// SPDX-FileCopyrightText: 2026 The tarn authors
// SPDX-License-Identifier: Apache-2.0

// Reads the command line, word by word. Checks everything that does not depend on the file.

#include "options.h"

#include "commands.h"
#include "common/command_line.h"
#include "common/words.h"
#include "file.h"

namespace tarn_tools::cfg {

namespace {

constexpr char kKeyHelp[] = "The field's key, 0 to 65535 or 0x0 to 0xffff; or active, flag, version, in the header";

// A command line under construction. The commands store their options in `request`.
struct Parser {
  CommandLine line{"tarn-cfg", "Reads, changes, checks and repairs startup configuration images."};
  Request request;
  std::string value;  // set: its type decides what it means

  tarn_tools::Command add(const char *name, const char *help, cfg::Command run) {
    return line.command(name, help, [this, run] { request.command = run; });
  }
  void file(tarn_tools::Command &command, const char *help = "The image file") {
    command.needed_argument("FILE", help, into(&request.options.file));
  }
  void key(tarn_tools::Command &command, const char *help, Key (*read)(const std::string &word)) {
    command.needed_argument("KEY", help, [this, read](const std::string &word) { request.options.key = read(word); });
  }
  void max_size(tarn_tools::Command &command) {
    command.option("--max-size", "N", "Bytes of the longest image that the daemon accepts",
                   [this](auto &word) { request.options.max_size = number_of("--max-size", word, 0, UINT32_MAX); });
  }
  void json(tarn_tools::Command &command) { command.flag("--json", "Print JSON", &request.options.json); }
  void force(tarn_tools::Command &command) {
    command.flag("--force", "Replace an existing file; its mode and owner stay", &request.options.force);
  }
  // A field's length.
  Take length(const char *name) {
    return [this, name](auto &word) { request.options.length = number_of(name, word, 1, kMaxValueSize); };
  }
  Take type(const char *name, std::vector<std::pair<const char *, ValueType>> choices) {
    return [this, name, choices](auto &word) { request.options.type = choice_of(name, word, choices); };
  }
};

std::vector<std::pair<const char *, ValueType>> types(bool with_raw) {
  std::vector<std::pair<const char *, ValueType>> choices;
  for (const ValueType type :
       {ValueType::kChar, ValueType::kShort, ValueType::kInt, ValueType::kBuffer, ValueType::kText}) {
    choices.emplace_back(name_of(type), type);
  }
  if (with_raw) choices.emplace_back(name_of(ValueType::kRaw), ValueType::kRaw);
  return choices;
}

void add_readers(Parser &parser) {
  auto command = parser.add("show", "Show the header and every record; status 1 if there is a fault", show);
  parser.file(command);
  parser.json(command);

  command = parser.add("get", "Print one value; status 1 if it does not exist", get);
  parser.file(command);
  parser.key(command, kKeyHelp, field_or_header_key);
  command.option("--as", "TYPE", "Print the value as this type; status 1 if it cannot be",
                 parser.type("--as", types(true)));

  command = parser.add("check", "Report every fault with its offset; status 1 if there is one", check);
  parser.file(command);
  parser.max_size(command);
  parser.json(command);

  command = parser.add("diff", "Print the differences of two images; status 1 if there are any", diff);
  command.needed_argument("A", "An image file", into(&parser.request.options.file));
  command.needed_argument("B", "Another one", into(&parser.request.options.other));
  parser.json(command);
}

void add_editors(Parser &parser) {
  auto command = parser.add("set", "Change or add a field, or change a value of the header", set);
  parser.file(command);
  parser.key(command, kKeyHelp, field_or_header_key);
  command.needed_argument("TYPE", "char, short and int have 1, 2 and 4 bytes; buffer: hexadecimal; text",
                          parser.type("TYPE", types(false)));
  command.needed_argument("VALUE", "The value; put -- before one that begins with a dash", into(&parser.value));
  command.option("--length", "N", "Bytes of a new buffer or text, with zeros at its end", parser.length("--length"));
  parser.max_size(command);

  command = parser.add("unset", "Remove every field with a key; status 1 if there is none", unset);
  parser.file(command);
  parser.key(command, "The fields' key", field_key);

  command = parser.add("resize", "Change the length of a field; status 1 if it does not exist", resize);
  parser.file(command);
  parser.key(command, "The field's key", field_key);
  command.needed_argument("LENGTH", "Its new length, 1 to 65535 bytes", parser.length("LENGTH"));
  command.flag("--cut", "Cut a value that is longer", &parser.request.options.cut);
  parser.max_size(command);
}

void add_makers(Parser &parser) {
  Options &options = parser.request.options;
  auto command = parser.add("create", "Make a blank image", create);
  parser.file(command, "The new file");
  parser.force(command);
  command.option("--size", "N", "Bytes of the file, with padding after the image",
                 [&options](auto &word) { options.file_size = number_of("--size", word, kHeaderSize, kMaxFileSize); });
  command.option("--fill", "BYTE", "The padding's byte, 0 to 255; 0 unless given", [&options](auto &word) {
    options.fill = static_cast<uint8_t>(number_of("--fill", word, 0, UINT8_MAX));
  });

  command = parser.add("repair", "Make a sound image of the undamaged fields; status 3 if bytes were lost", repair);
  parser.file(command);
  command.flag("--dry-run", "Only print the steps; status 1 or 3 if there are any", &options.is_dry_run);
  command.flag("--magic", "Treat a file without the magic number as an image", &options.takes_any_magic);

  command = parser.add("export", "Print the file as JSON", export_json);
  parser.file(command);

  command = parser.add("import", "Make a file from the output of export", import_json);
  command.needed_argument("JSON", "The JSON file; - is standard input", into(&options.other));
  parser.file(command, "The new image file");
  parser.force(command);
  parser.max_size(command);
}

// The bytes of a value; the word before it is the type.
Bytes value_of(const std::string &word, ValueType type) {
  if (type == ValueType::kText) return bytes_of_text(word);
  if (const size_t size = size_of(type))
    return bytes_of_number(number_of("value", word, 0, largest_number(size)), size);
  std::optional<Bytes> bytes = bytes_from_hex(word);
  if (!bytes) refuse("value", word, "is not pairs of hexadecimal digits");
  return *bytes;
}

void check_together(const Options &options) {
  if (options.key.in_header && options.type && *options.type != type_of(*options.key.in_header)) {
    throw UsageError(std::string(name_of(*options.key.in_header)) + " is of type " +
                     name_of(type_of(*options.key.in_header)));
  }
  if (options.length && options.type && size_of(*options.type) != 0) {
    throw UsageError("--length is for buffer and text");
  }
  if (options.fill && !options.file_size) throw UsageError("--fill needs --size");
}

}  // namespace

Request parse_command_line(int argc, const char *const *argv) {
  Parser parser;
  parser.line.set_footer(
      "Exit status: 0 done, 1 not found, a fault or a difference, 2 wrong use or input, 3 repair: bytes were lost.\n"
      "tarn-cfg COMMAND --help describes a command; tarn-cfg(1) describes them all.");
  add_readers(parser);
  add_editors(parser);
  add_makers(parser);
  if (!parser.line.parse(argc, argv)) return {};
  Options &options = parser.request.options;
  check_together(options);
  if (parser.request.command == set && options.type) options.value = value_of(parser.value, *options.type);
  return parser.request;
}

}  // namespace tarn_tools::cfg
