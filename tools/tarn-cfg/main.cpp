// tarn-cfg: works on files with startup configuration images.

#include "commands.h"

int main(int argc, char **argv) { return tarn_cfg::run(argc, argv); }
