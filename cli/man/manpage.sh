#!/usr/bin/env bash
# The ferrotip man page, made from the command's own help so that it never
# falls behind the code, and the check that it is complete.
#
#   cli/man/manpage.sh generate FERROTIP OUT.1   write the page
#   cli/man/manpage.sh check FERROTIP PAGE.1     fail unless the rendered page shows
#                                                every subcommand and every option
#                                                that FERROTIP's help shows
#   cli/man/manpage.sh self-test FERROTIP PAGE.1 the check must refuse PAGE with
#                                                one option taken out
#
# help2man writes the page from `ferrotip --help` and `--version`; every
# subcommand (at any depth) gets a section of its own, made by help2man from
# `ferrotip <subcommand> --help` and demoted under COMMANDS.
set -euo pipefail

usage() { sed -n '5,10p' "${BASH_SOURCE[0]}" | sed 's/^# \{0,1\}//' >&2; exit 2; }
(( $# == 3 )) || usage
mode=$1
ferrotip=$2
page=$3

# help_of [SUBCOMMAND...]: the help text of the command or of a subcommand.
help_of() { "$ferrotip" "$@" --help; }

# subcommands_of [SUBCOMMAND...]: names listed under "Subcommands:", one a line.
subcommands_of() {
  help_of "$@" | awk '/^Subcommands:/ { inside = 1; next }
                      inside && /^[^ ]/ { inside = 0 }
                      inside && /^  [^ ]/ { print $1 }'
}

# options_of [SUBCOMMAND...]: every option name (-s, --start, ...), under "Options:"
# or under the heading of an option group.
options_of() {
  help_of "$@" | awk '/^[^ ]/ { listed = !/^(Positionals|Subcommands):/; next }
                      listed && /^  -/ {
                        sub(/^  /, ""); sub(/ .*/, "")
                        n = split($0, names, ",")
                        for (i = 1; i <= n; ++i) { sub(/[{=].*/, "", names[i]); print names[i] }
                      }'
}

# command_paths: "" for the command itself, then every subcommand path, depth first.
command_paths() {
  local path=("$@") sub
  printf '%s\n' "${path[*]}"
  for sub in $(subcommands_of "${path[@]}"); do
    command_paths "${path[@]}" "$sub"
  done
}

generate() {
  local work include name
  work=$(mktemp -d)
  trap 'rm -rf "$work"' RETURN
  include=$work/commands.h2m
  echo "[COMMANDS]" >"$include"
  while IFS= read -r path; do
    [[ -n $path ]] || continue
    # shellcheck disable=SC2086  # the path is words: "declick", "declick preset"
    help2man --no-info --no-discard-stderr --help-option="$path --help" \
      --output="$work/sub.1" "$ferrotip"
    {
      printf '.SS "ferrotip %s"\n' "$path"
      # The subcommand's own page, from its synopsis on, with its headings made
      # into bold paragraph titles (a .SS cannot hold another .SS).
      sed -n '/^\.SH SYNOPSIS/,$p' "$work/sub.1" | sed \
        -e 's/^\.SH SYNOPSIS$/.PP/' \
        -e 's/^\.SH DESCRIPTION$/.PP/' \
        -e 's/^\.SH OPTIONS$/.PP\n.B Options:/' \
        -e 's/^\.S[HS] "\(.*\)"$/.PP\n.B "\1"/' \
        -e 's/^\.S[HS] \(.*\)$/.PP\n.B "\1"/'
    } >>"$include"
  done < <(command_paths)
  name=$(help_of | head -1 | sed 's/^ferrotip: //')
  help2man --no-info --no-discard-stderr --section=1 --name="$name" --include="$include" \
    --output="$page" "$ferrotip"
}

# The page as a reader sees it: rendered, without hyphenation, justification or
# line breaks inside a long line, and without formatting codes.
rendered() {
  MANWIDTH=1000 MAN_KEEP_FORMATTING= man --nh --nj -l "$1" 2>/dev/null |
    sed -e 's/\x1b\[[0-9;]*m//g' -e 's/.\x08//g'
}

# check PAGE: 0 when PAGE shows every subcommand and every option.
check() {
  local text missing=0 path section option
  text=$(rendered "$1")
  [[ -n $text ]] || { echo "manpage: $1 renders to nothing"; return 1; }
  while IFS= read -r path; do
    if [[ -z $path ]]; then
      # The command's own options: everything before the subcommands' sections.
      section=$(sed '/^COMMANDS$/,$d' <<<"$text")
    else
      section=$(awk -v heading="   ferrotip $path" '
        $0 == heading { inside = 1; next }
        inside && (/^   ferrotip / || /^[A-Z]/) { exit }
        inside { print }' <<<"$text")
      if [[ -z $section ]]; then
        echo "manpage: no section for 'ferrotip $path'"
        missing=$((missing + 1))
        continue
      fi
    fi
    while IFS= read -r option; do
      [[ -n $option ]] || continue
      if ! grep -Eq -- "(^|[^[:alnum:]-])${option}([^[:alnum:]-]|\$)" <<<"$section"; then
        echo "manpage: 'ferrotip${path:+ $path}' has option $option, the page does not show it"
        missing=$((missing + 1))
      fi
    done < <(options_of $path)
  done < <(command_paths)
  (( missing == 0 )) || { echo "manpage: $missing item(s) missing from $1"; return 1; }
  echo "manpage: $1 shows every subcommand and option of $ferrotip"
}

# The check must notice a page without one option: take out every mention of
# the last subcommand's last option and expect a refusal.
self_test() {
  local work last option
  work=$(mktemp -d)
  trap 'rm -rf "$work"' RETURN
  last=$(command_paths | tail -1)
  # shellcheck disable=SC2086
  option=$(options_of $last | tail -1)
  grep -vF -- "${option//-/\\-}" "$page" >"$work/incomplete.1"
  if check "$work/incomplete.1" >"$work/out"; then
    echo "manpage: the check accepted a page without $option of 'ferrotip $last'"
    return 1
  fi
  echo "manpage: the check refuses a page without $option of 'ferrotip $last'"
}

case $mode in
  generate) generate ;;
  check) check "$page" ;;
  self-test) self_test ;;
  *) usage ;;
esac
