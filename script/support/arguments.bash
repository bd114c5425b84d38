# What scripts say of themselves: sourced by those in script/, before they do anything else.

# help: prints the comment at the head of the calling script.
help() {
  sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$0"
}

# help_where_asked "$@": prints that and ends the script, where it is asked for.
help_where_asked() {
  local argument
  for argument in "$@"; do
    case $argument in
      --help | -h)
        help
        exit 0
        ;;
    esac
  done
}

# refuse <what is wrong with the arguments>: ends the script.
refuse() {
  printf '%s: %s\nSee %s --help.\n' "script/${0##*/}" "$1" "script/${0##*/}" >&2
  exit 2
}

# no_arguments "$@": for scripts that take none.
no_arguments() {
  help_where_asked "$@"
  (($# == 0)) || refuse "unexpected argument $1"
}
