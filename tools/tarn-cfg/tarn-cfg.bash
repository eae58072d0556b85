# SPDX-FileCopyrightText: 2026 The tarn authors
# SPDX-License-Identifier: Apache-2.0
# bash completion for tarn-cfg

_tarn_cfg() {
  local word=${COMP_WORDS[COMP_CWORD]} last=${COMP_WORDS[COMP_CWORD - 1]} command=${COMP_WORDS[1]} options='' choices=''
  COMPREPLY=()
  if ((COMP_CWORD == 1)); then
    choices='check create diff export get import repair resize set show unset'
    mapfile -t COMPREPLY < <(compgen -W "$choices --help --version" -- "$word")
    return
  fi
  case $command in
    show | diff) options='--json' ;;
    check) options='--json --max-size' ;;
    get) options='--as' ;;
    set) options='--length --max-size' ;;
    resize) options='--cut --max-size' ;;
    create) options='--force --size --fill' ;;
    repair) options='--dry-run --magic' ;;
    import) options='--force --max-size' ;;
  esac
  if [[ $word == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$options --help" -- "$word")
    return
  fi
  case $last in
    --as) mapfile -t COMPREPLY < <(compgen -W 'char short int buffer text raw' -- "$word") && return ;;
    --max-size | --length | --size | --fill) return ;;
  esac

  # The place of the word among the arguments that are not options.
  local place=0 i
  for ((i = 2; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      --as | --max-size | --length | --size | --fill) i=$((i + 1)) ;;
      -*) ;;
      *) place=$((place + 1)) ;;
    esac
  done
  case $command:$place in
    *:0 | diff:1 | import:1) mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
    get:1 | set:1) mapfile -t COMPREPLY < <(compgen -W 'active flag version' -- "$word") ;;
    set:2) mapfile -t COMPREPLY < <(compgen -W 'char short int buffer text' -- "$word") ;;
  esac
}

complete -o filenames -F _tarn_cfg tarn-cfg
