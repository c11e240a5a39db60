# SPDX-License-Identifier: MIT
# shellcheck shell=bash
# Completion of keloctl for bash.
_keloctl_settings() { keloctl settings list --tsv 2> /dev/null | awk -F '\t' '$1 == "item" { print $2 "." $3 }'; }
_keloctl_tables() { keloctl settings list --tsv 2> /dev/null | awk -F '\t' '$1 == "item" { print $2 }' | sort -u; }

_keloctl_parameters() { keloctl param list --tsv 2> /dev/null | awk -F '\t' '$1 == "parameter" { print $2 "." $3 }'; }

_keloctl() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} word
  local -a given=()
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    case $word in -*) ;; *) given+=("$word") ;; esac
  done
  local command="${given[*]:0:2}" choices=
  case ${#given[@]} in
    0) choices="settings store param log ini text ussd at net info" ;;
    1)
      case $command in
        settings) choices="list get set reset diff export import clean" ;;
        store) choices="status check repair watch" ;;
        param) choices="list get set restore provision" ;;
        log) choices="watch on off level explain" ;;
        ini) choices="get set del list" ;;
        text) choices="gsm ucs2 utf8 hex unhex" ;;
        ussd) choices="decode" ;;
        net) choices="gateway address bridge" ;;
      esac
      ;;
    2)
      case $command in
        "settings get" | "settings set" | "settings reset") choices=$(_keloctl_settings) ;;
        "param get" | "param set" | "param restore") choices=$(_keloctl_parameters) ;;
        "settings list" | "settings diff" | "settings export") choices=$(_keloctl_tables) ;;
      esac
      ;;
  esac
  case $current in
    -*)
      choices="--json --tsv --verbose --store --backup --help"
      case $command in
        "settings get") choices+=" --default --hex" ;;
        "settings set") choices+=" --hex --id" ;;
        "settings clean") choices+=" --keep-copy" ;;
        "store repair") choices+=" --yes" ;;
        "store watch") choices+=" --count --timeout" ;;
        "param get") choices+=" --factory" ;;
        "param restore") choices+=" --all" ;;
        "param provision") choices+=" --user" ;;
        "log watch") choices+=" -f -n" ;;
        "log on" | "log off") choices+=" --watch" ;;
        "ini get" | "ini set" | "ini del") choices+=" --section" ;;
        "ussd decode") choices+=" --dcs" ;;
        at*) choices+=" --timeout" ;;
      esac
      ;;
  esac
  COMPREPLY=()
  case $previous in --store | --backup) mapfile -t COMPREPLY < <(compgen -d -S / -- "$current") && return ;; esac
  if [ -n "$choices" ]; then
    mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$current")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
  fi
}
complete -F _keloctl keloctl
