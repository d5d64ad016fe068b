# shellcheck shell=bash
# Bash completion of morvex_ctl: subcommands, and the ids of the calls in progress.
_morvex_ctl() {
  local cur=${COMP_WORDS[COMP_CWORD]}
  if ((COMP_CWORD == 1)); then
    mapfile -t COMPREPLY < <(compgen -W \
      'silence sound start stop delete reconfig chst bittrace_start bittrace_stop change_local status watch metrics --help' -- "$cur")
    return
  fi
  case ${COMP_WORDS[1]} in
    silence | sound | start | stop | delete)
      local ids
      ids=$(morvex_ctl status --json 2>/dev/null |
        sed -n '/"call_id"/h; /"state": "\(unfinished\|left by a crash\)"/d; /"state"/{x;s/.*"call_id": "\([0-9_]*\)".*/\1/p}')
      mapfile -t COMPREPLY < <(compgen -W "$ids" -- "$cur")
      ;;
    change_local) mapfile -t COMPREPLY < <(compgen -W '--stop-start' -- "$cur") ;;
    status)
      mapfile -t COMPREPLY < <(compgen -W \
        '--json --check --warn-free --crit-free --warn-behind --crit-behind --warn-event' -- "$cur")
      ;;
    watch) mapfile -t COMPREPLY < <(compgen -W '--json' -- "$cur") ;;
  esac
}
complete -F _morvex_ctl morvex_ctl
