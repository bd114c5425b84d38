# What scripts say of themselves. Sourced by each of them in the tree's root, before it does anything else.

this_script=script/${0##*/}
[[ -e $this_script ]] || this_script=.ci/${0##*/}

# help: prints the comment at the head of the script.
help() {
  sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$this_script"
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
  printf '%s: %s\nSee %s --help.\n' "$this_script" "$1" "$this_script" >&2
  exit 2
}

# no_arguments "$@": for scripts that take none.
no_arguments() {
  help_where_asked "$@"
  (($# == 0)) || refuse "unexpected argument $1"
}
