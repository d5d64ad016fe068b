# shellcheck shell=bash
# Bash completion of morvex_display: its options and the start modes as its help tells them, and files.
_morvex_display() {
  local cur=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} help words
  help=$("${COMP_WORDS[0]}" --help 2>/dev/null)
  case $previous in
    --start-mode)
      words=$(sed -n 's/.*--start-mode [^{]*{\([^}]*\)}.*/\1/p' <<<"$help")
      mapfile -t COMPREPLY < <(compgen -W "${words//,/ }" -- "$cur")
      return
      ;;
    --*)
      # An option with a value, which only its user knows; a flag has none.
      if grep -qE -- "^ *$previous( [A-Z]|=)" <<<"$help"; then
        COMPREPLY=()
        return
      fi
      ;;
  esac
  if [[ $cur == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$(grep -oE -- '^ *(-[a-z],)?--[a-z-]+' <<<"$help" | grep -oE -- '--.*')" -- "$cur")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$cur")
  fi
}
complete -o filenames -F _morvex_display morvex_display
