#!/usr/bin/env bash
# Whether the figures of docs/ are what their scripts draw.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

need python3
for script in docs/*_figure.py; do "$script" | diff "${script%_figure.py}.svg" -; done
