# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Completion of tarn-log for bash.

_tarn_log() {
  local word=${COMP_WORDS[COMP_CWORD]} option=${COMP_WORDS[COMP_CWORD - 1]} words=
  COMPREPLY=()
  if [[ $option == = ]]; then option=${COMP_WORDS[COMP_CWORD - 2]}; fi
  if [[ $word == = ]]; then
    option=${COMP_WORDS[COMP_CWORD - 1]}
    word=
  fi
  case $option in
    --color) words="auto always never" ;;
    -l | --level) words="Off Emergency Alert Critical Error Warning Notice Info Debug" ;;
    --since | --until) words="now today yesterday 10min 1h 1d 1w" ;;
    -m | --module | -g | --grep | -e | --regex | -n | --lines | --interval) return ;;
    *)
      if [[ $word != -* ]]; then
        compopt -o default 2>/dev/null # files
        return
      fi
      words="--module= --level= --since= --until= --grep= --regex= --ignore-case --lines= --reverse --local --utc
        --color= --header --json --count --follow --interval= --strict --help --version"
      ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
  if [[ ${COMPREPLY[0]-} == *= ]]; then compopt -o nospace 2>/dev/null; fi
}

complete -F _tarn_log tarn-log
