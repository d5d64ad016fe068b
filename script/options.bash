# shellcheck shell=bash
# options: reads the command line of the scripts beside it, which source it; script/options.py does so for those in Python.
#
#   parse_options ENTRY... -- "$@"
#
# Each ENTRY says what may stand there, and ends with the variable that gets it:
#
#   "--all           ALL"          a switch; ALL is 1 then
#   "--build DIR     BUILD"        an option with a value. A value called N is a whole number from 1, any other some text
#   "--keep DIR      KEEP..."      an option that may come again; KEEP is an array
#   "FOLDER          FOLDER"       an argument; N is a number here too
#   "FILE            FILES..."     any number of arguments, behind those that stand alone
#   "-- COMMAND      COMMAND..."   the first argument and all behind it, options or not; also what stands behind "--"
#   "- ARGUMENT      CTEST..."     the same, and what begins with a single hyphen is such a first argument
#
# A variable of which nothing is said keeps what it had. -h and --help print the head of the script, and end it before it
# has done anything. What no entry foresees ends it too, with status 2 and one line that tells what there is. A script
# that changes its directory does so afterwards.

# Ends the script over its command line.
usage_error() {
  echo "${0##*/}: $* (see --help)" >&2
  exit 2
}

# check_word WHAT WORD KNOWN...: ends the script unless the word is known.
check_word() {
  local what=$1 word=$2 known
  shift 2
  for known in "$@"; do
    [ "$word" != "$known" ] || return 0
  done
  usage_error "unknown $what $word; known: $*"
}

# The comment that the script begins with, but for its first line and words to a checker.
print_head() {
  sed -n '2,${/^#/!q;/^# shellcheck /d;s/^# \{0,1\}//p}' "${BASH_SOURCE[-1]}"
}

# store VARIABLE PLACEHOLDER VALUE: the value is added where the variable ends with dots, and set elsewhere.
store() {
  if [ "$2" = N ] && ! [[ $3 =~ ^[1-9][0-9]*$ ]]; then
    usage_error "not a whole number from 1: $3"
  fi
  case $1 in
    *...)
      # shellcheck disable=SC2034  # it is another name of the script's own array
      local -n array=${1%...}
      array+=("$3")
      ;;
    *) printf -v "$1" %s "$3" ;;
  esac
}

parse_options() {
  local -A variable_of=() placeholder_of=()
  local options=() arguments=() words value only_arguments='' rest='' rest_begins=''
  while [ "$1" != -- ]; do
    read -ra words <<<"$1"
    case ${words[0]} in
      - | --) rest_begins=${words[0]} rest=${words[2]} ;;
      -*)
        options+=("${words[0]}")
        variable_of[${words[0]}]=${words[-1]}
        [ ${#words[@]} -eq 2 ] || placeholder_of[${words[0]}]=${words[1]}
        ;;
      *) arguments+=("$1") ;;
    esac
    shift
  done
  shift

  while [ $# -gt 0 ]; do
    case $only_arguments$1 in
      -h | --help) print_head && exit 0 ;;
      --) only_arguments=1 ;;
      --*) take_option "$@" || shift ;;
      -?*)
        [ "$rest_begins" != - ] || break
        take_option "$@" || shift
        ;;
      *)
        [ -z "$rest" ] || break
        take_argument "$1"
        ;;
    esac
    shift
  done
  for value in "$@"; do
    store "$rest" "" "$value"
  done
}

# The option that comes first; not 0 when the word behind it is its value. The tables are those of parse_options.
take_option() {
  [ -n "${variable_of[$1]-}" ] || check_word option "$1" "${options[@]}" --help
  if [ -z "${placeholder_of[$1]-}" ]; then
    store "${variable_of[$1]}" "" 1
    return 0
  fi
  case ${2-} in
    '' | --*) usage_error "$1 needs a value: $1 ${placeholder_of[$1]}" ;;
  esac
  store "${variable_of[$1]}" "${placeholder_of[$1]}" "$2"
  return 1
}

take_argument() {
  [ ${#arguments[@]} -gt 0 ] || usage_error "unexpected argument $1"
  read -ra words <<<"${arguments[0]}"
  store "${words[1]}" "${words[0]}" "$1"
  case ${words[1]} in
    *...) ;;
    *) arguments=("${arguments[@]:1}") ;;
  esac
}
