# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Completion of tarn-event for bash.

_tarn_event() {
  local word=${COMP_WORDS[COMP_CWORD]} option=${COMP_WORDS[COMP_CWORD - 1]} command='' words='' i
  COMPREPLY=()
  if [[ $option == = ]]; then option=${COMP_WORDS[COMP_CWORD - 2]}; fi
  if [[ $word == = ]]; then
    option=${COMP_WORDS[COMP_CWORD - 1]}
    word=
  fi
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      send | storm | kmsg | run | dump | stop | status | watch)
        command=${COMP_WORDS[i]}
        break
        ;;
    esac
  done
  case $option in
    -c | --control | --root)
      compopt -o default 2>/dev/null # files
      return
      ;;
    -p | --port | --device | --data | --text | -n | --times | --every | --interval | --count) return ;;
    send | storm)
      words="link-up link-down traffic storm"
      ;;
    *)
      case $command in
        '') words="send storm kmsg run dump stop status watch --control= --root= --help --version" ;;
        send | storm) words="--port= --device= --data= --text= --times= --every=" ;;
        status) words="--all --json" ;;
        watch) words="--all --json --interval= --count=" ;;
      esac
      ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
  if [[ ${COMPREPLY[0]-} == *= ]]; then compopt -o nospace 2>/dev/null; fi
}

complete -F _tarn_event tarn-event
