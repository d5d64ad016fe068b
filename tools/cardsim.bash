# shellcheck shell=bash
# Bash completion of cardsim. Which words an action may have at a place, cardsim tells by itself when it is given one that
# is never right there. It is asked with a socket at which there are no cards, so nothing is done where any word is right.
_cardsim() {
  local cur=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} cardsim=${COMP_WORDS[0]} subcommand=() words
  local before=("${COMP_WORDS[@]:1:COMP_CWORD-1}")
  while [[ ${before[0]-} == --* ]]; do before=("${before[@]:2}"); done  # the socket, and how long to wait for it
  case ${before[0]-} in run | replay | check | status) subcommand=("${before[0]}") ;; esac

  if [[ $cur == -* ]]; then
    words=$("$cardsim" "${subcommand[@]}" --help 2>/dev/null | grep -oE -- '^ *(-[a-z],)?--[a-z-]+' | grep -oE -- '--.*')
  elif [[ ${#subcommand[@]} -gt 0 || $previous == file ]]; then
    mapfile -t COMPREPLY < <(compgen -f -- "$cur")
    return
  else
    words=$("$cardsim" --socket /dev/null "${before[@]}" '?' 2>&1 |
      sed -n 's/^cardsim: expected \(.*\), found "?"$/\1/p' | grep -oE '"[a-z_]+"' | tr -d '"')
    [[ ${#before[@]} -gt 0 ]] || words+=' run replay check'
  fi
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$cur")
}
complete -o filenames -F _cardsim cardsim
