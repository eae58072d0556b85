# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Completion of tarn-sim for bash.

_tarn_sim() {
  local word=${COMP_WORDS[COMP_CWORD]} option=${COMP_WORDS[COMP_CWORD - 1]} words index
  COMPREPLY=()
  for ((index = 1; index < COMP_CWORD; index++)); do
    if [[ ${COMP_WORDS[index]} == -- ]]; then # the daemon's own command line
      _command_offset $((index + 1)) 2>/dev/null || compopt -o default 2>/dev/null
      return
    fi
  done
  if [[ $option == = ]]; then option=${COMP_WORDS[COMP_CWORD - 2]}; fi
  if [[ $word == = ]]; then
    option=${COMP_WORDS[COMP_CWORD - 1]}
    word=
  fi
  case $option in
    --root)
      compopt -o dirnames 2>/dev/null
      return
      ;;
    --script | --control)
      compopt -o default 2>/dev/null # files
      return
      ;;
    --collector | --events | --grace) return ;;
    *) words="--root= --script= --control= --collector= --no-namespace --events= --grace= --verbose --help --version --" ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
  if [[ ${COMPREPLY[0]-} == *= ]]; then compopt -o nospace 2>/dev/null; fi
}

complete -F _tarn_sim tarn-sim
