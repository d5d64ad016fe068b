# shellcheck shell=bash
# Bash completion of morvex_ctl: subcommands, the ids of the calls in progress, line numbers, and the names
# of settings.
_morvex_ctl_lines() {
  morvex_ctl status --json 2>/dev/null | sed -n '/"health"/{n;s/.*"line": \([0-9]*\).*/\1/p}'
}

_morvex_ctl_calls() {
  morvex_ctl status --json 2>/dev/null |
    sed -n '/"call_id"/h; /"state": "\(unfinished\|left by a crash\)"/d; /"state"/{x;s/.*"call_id": "\([0-9_]*\)".*/\1/p}'
}

_morvex_ctl() {
  local cur=${COMP_WORDS[COMP_CWORD]} words=
  if ((COMP_CWORD == 1)); then
    words='silence sound start stop delete reconfig chst bittrace_start bittrace_stop change_local'
    words+=' status watch metrics settings set --help --version'
  elif [[ ${COMP_WORDS[COMP_CWORD - 1]} == --line ]]; then
    words=$(_morvex_ctl_lines)
  else
    case ${COMP_WORDS[1]} in
      silence | sound | start | stop | delete)
        if [[ $cur == -* ]]; then words=--line; else words=$(_morvex_ctl_calls); fi
        ;;
      chst)
        if [[ $cur == -* ]]; then words=--json; else words=$(_morvex_ctl_lines); fi
        ;;
      change_local) words=--stop-start ;;
      status) words='--json --line --check --warn-free --crit-free --warn-behind --crit-behind --warn-event' ;;
      watch) words=--json ;;
      settings) words="$(morvex_ctl settings --markdown 2>/dev/null | sed -n 's/^| [[:punct:]]\([[:alnum:]_]*\)[[:punct:]] |.*/\1/p') --check --json" ;;
      set)
        # What the recorder writes itself comes behind all that can be set.
        if ((COMP_CWORD > 2)); then
          words='--board --channel --part'
        else
          words=$(morvex_ctl settings --markdown 2>/dev/null | sed -n '/^## Written/q; s/^| [[:punct:]]\([[:alnum:]_]*\)[[:punct:]] |.*/\1/p')
        fi
        ;;
    esac
  fi
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur")
}
complete -F _morvex_ctl morvex_ctl
