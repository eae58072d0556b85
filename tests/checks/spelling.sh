#!/usr/bin/env bash
# Whether codespell finds no misspelt word. .codespellrc names the words that are meant.
. "$(dirname "${BASH_SOURCE[0]}")/common.sh"

need codespell git
git ls-files -z | xargs -0 codespell
