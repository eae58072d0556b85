#!/usr/bin/env bash
# Whether every file states its licence and its copyright (https://reuse.software).
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

need reuse git
reuse lint
