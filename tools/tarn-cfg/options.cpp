// The command line.

#include <err.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>

#include "commands.h"

namespace tarn_cfg {

namespace {

constexpr const char *kVersion = TARN_TOOLS_VERSION;

const char *const kKeyHelp = "The field's key, 0 to 65535 or 0x0 to 0xffff; or active, flag, version, in the header";

// An option's empty word is no number; later, it would look like an option that is not given.
std::string not_empty(const std::string &word) { return word.empty() ? "a number is needed" : ""; }

// A command line under construction. The commands write where their options are to stand.
struct Line {
  CLI::App app{"Reads, changes, checks and repairs startup configuration images.", "tarn-cfg"};
  Options options;
  Command command = nullptr;

  CLI::App *add(const char *name, const char *what, Command run) {
    CLI::App *sub = app.add_subcommand(name, what);
    sub->callback([this, run] { command = run; });
    return sub;
  }
  void file(CLI::App *sub, const char *what = "The image file") {
    sub->add_option("FILE", options.file, what)->required();
  }
  void max_size(CLI::App *sub) {
    sub->add_option("--max-size", options.max_size, "The longest image, in bytes, that its reader takes")
        ->check(not_empty);
  }
  void json(CLI::App *sub) { sub->add_flag("--json", options.json, "Print JSON"); }
  void force(CLI::App *sub) {
    sub->add_flag("--force", options.force, "Replace a file that is there; its mode and owner stay");
  }
};

void add_readers(Line &line) {
  CLI::App *sub = line.add("show", "Show the header and every record; 1 where something is wrong with them", show);
  line.file(sub);
  line.json(sub);

  sub = line.add("get", "Print one value; 1 where it is not there", get);
  line.file(sub);
  sub->add_option("KEY", line.options.key, kKeyHelp)->required();
  sub->add_option("--as", line.options.type, "What to take the value for; 1 where it is none")
      ->check(CLI::IsMember({"char", "short", "int", "buffer", "text", "raw"}));

  sub = line.add("check", "Tell every fault with its offset; 1 where there is one", check);
  line.file(sub);
  line.max_size(sub);
  line.json(sub);

  sub = line.add("diff", "Tell what distinguishes two images; 1 where something does", diff);
  sub->add_option("A", line.options.file, "An image file")->required();
  sub->add_option("B", line.options.other, "Another one")->required();
  line.json(sub);
}

void add_writers(Line &line) {
  CLI::App *sub = line.add("set", "Change or add a field, or change a value of the header", set);
  line.file(sub);
  sub->add_option("KEY", line.options.key, kKeyHelp)->required();
  sub->add_option("TYPE", line.options.type, "char, short and int have 1, 2 and 4 bytes; buffer: hexadecimal; text")
      ->required()
      ->check(CLI::IsMember({"char", "short", "int", "buffer", "text"}));
  sub->add_option("VALUE", line.options.value, "The value; one that begins with a dash stands behind --")->required();
  sub->add_option("--length", line.options.length, "Bytes of a new buffer or text, with zeros at its end")
      ->check(not_empty);
  line.max_size(sub);

  sub = line.add("unset", "Take every field of a key away; 1 where there is none", unset);
  line.file(sub);
  sub->add_option("KEY", line.options.key, "The fields' key")->required();

  sub = line.add("resize", "Change the length of a field; 1 where it is not there", resize);
  line.file(sub);
  sub->add_option("KEY", line.options.key, "The field's key")->required();
  sub->add_option("LENGTH", line.options.length, "Its new length, 1 to 65535 bytes")->required();
  sub->add_flag("--cut", line.options.cut, "Cut a value that is longer");
  line.max_size(sub);

  sub = line.add("create", "Make a blank image", create);
  line.file(sub, "The new file");
  line.force(sub);
  sub->add_option("--size", line.options.length, "Bytes of the file, with padding behind the image")->check(not_empty);
  sub->add_option("--fill", line.options.fill, "The padding's byte, 0 to 255; 0 unless given")->check(not_empty);

  sub = line.add("repair", "Cut an image behind its last whole record, and seal it", repair);
  line.file(sub);
  sub->add_flag("--dry-run", line.options.dry_run, "Only tell what would be done; 1 where that is something");
  sub->add_flag("--magic", line.options.magic, "Take a file without the magic number for an image");
}

void add_json(Line &line) {
  CLI::App *sub = line.add("export", "Print the file as JSON", export_json);
  line.file(sub);

  sub = line.add("import", "Make a file of what export has printed", import_json);
  sub->add_option("JSON", line.options.other, "The JSON file; - is standard input")->required();
  line.file(sub, "The new image file");
  line.force(sub);
  line.max_size(sub);
}

}  // namespace

void flush_output() {
  if (fflush(stdout) != 0 || ferror(stdout) != 0) err(kWrong, "standard output");
}

int run(int argc, char **argv) {
  // A file that grows beyond a limit is told as any other that cannot be written.
  (void)signal(SIGXFSZ, SIG_IGN);
  Line line;
  line.app.set_version_flag("--version", std::string("tarn-cfg ") + kVersion);
  line.app.set_help_flag("-h,--help", "Show this and end");
  line.app.require_subcommand(1);
  line.app.failure_message([](const CLI::App *, const CLI::Error &error) {
    return "tarn-cfg: " + std::string(error.what()) + "\ntarn-cfg: see tarn-cfg --help\n";
  });
  line.app.footer(
      "Exit codes: 0 done, 1 the thing asked about is not so, 2 wrong use or input.\n"
      "tarn-cfg COMMAND --help tells about a command; tarn-cfg(1) about all.");
  add_readers(line);
  add_writers(line);
  add_json(line);
  try {
    line.app.parse(argc, argv);
  } catch (const CLI::ParseError &error) {
    if (line.app.exit(error) != 0) return kWrong;
    flush_output();  // the help
    return kDone;
  }
  const int result = line.command(line.options);
  flush_output();
  return result;
}

}  // namespace tarn_cfg
