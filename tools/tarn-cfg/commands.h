// The commands of tarn-cfg, and what their command line says.
#ifndef TARN_CFG_COMMANDS_H
#define TARN_CFG_COMMANDS_H

#include <optional>
#include <string>

namespace tarn_cfg {

// Exit codes. Whoever finds wrong use or input says so on standard error and ends the program there, with errx.
enum ExitCode {
  kDone = 0,
  kNotSo = 1,  // the thing asked about is not so
  kWrong = 2,  // wrong use or input
};

// Numbers are texts here: parse_number reads them all alike.
struct Options {
  std::string file;
  std::string other;  // the second file of diff, the JSON file of import
  std::string key, type, value;
  std::string length;
  std::string max_size;  // empty: no limit
  std::string fill;
  bool json = false;
  bool force = false;
  bool cut = false;
  bool magic = false;
  bool dry_run = false;
};

// Each returns an exit code.
using Command = int (*)(const Options &);
int check(const Options &options);
int create(const Options &options);
int diff(const Options &options);
int export_json(const Options &options);
int get(const Options &options);
int import_json(const Options &options);
int repair(const Options &options);
int resize(const Options &options);
int set(const Options &options);
int show(const Options &options);
int unset(const Options &options);

// Ends the program where what it has printed cannot be written: standard output may be a file on a full disk.
void flush_output();

// Reads the command line and runs its command.
int run(int argc, char **argv);

}  // namespace tarn_cfg

#endif
