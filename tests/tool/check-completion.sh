#!/usr/bin/env bash
# The bash completion of dvenv: registered for dvenv, completing the commands
# (the same list as dvenv --help), each command's options, option names as
# the library has them, values of --format in both spellings, and files.
#   check-completion.sh DVENV COMPLETION-FILE
set -uo pipefail
dvenv=$1 completion=$2
export HOME=$(mktemp -d)
trap 'rm -rf "$HOME"' EXIT
unset DISPLAY
export LC_ALL=C

failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }

registered=$(bash -c 'source "$1"; complete -p dvenv' _ "$completion") || fail "not registered"
[ "$registered" = "complete -F _dvenv dvenv" ] || fail "registered as '$registered'"

# complete WORDS...: what the completion offers for the last word, sorted, on
# one line; COMP_WORDBREAKS as bash has it, so "=" splits words.
complete_words() {
  bash -c 'source "$1"; shift
    COMP_WORDS=("$@"); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); COMP_LINE="$*"; COMP_POINT=${#COMP_LINE}
    _dvenv; [ ${#COMPREPLY[@]} = 0 ] || printf "%s\n" "${COMPREPLY[@]}" | sort | tr "\n" " "' _ "$completion" "$dvenv" "${@:2}"
}
# expect WANT WORDS...
expect() {
  local want=$1; shift
  local got; got=$(complete_words "$@")
  [ "$got" = "$want" ] || fail "dvenv ${*:2}: offered '$got', want '$want'"
}

commands=$("$dvenv" --help | sed -n '/^commands:/,/^$/s/^  \([a-z][a-z-]*\).*/\1/p' | sort | tr '\n' ' ')
expect "--help --version $commands" dvenv ''
expect "report reset run " dvenv r
expect "--help --version " dvenv --
expect "--changed --format= --help " dvenv options --
expect "json table tsv " dvenv options --format ''
expect "tsv " dvenv options --format = ts
expect "tsv " dvenv options --format=ts
expect "ToolArcPrecUnits ToolArcPrecValue " dvenv get ToolArcPrec
expect "" dvenv get ToolArcPrecValue ''
expect "false true " dvenv set ToolConvertText ''
expect "" dvenv set ToolArcPrecValue ''
expect "--all " dvenv reset --a
expect "ToolArcPrecValue " dvenv reset ToolCropX0 ToolArcPrecV
expect "-ToolArcPrecUnits= -ToolArcPrecValue= " dvenv run -ToolArcPrec
expect "--log " dvenv report --l
expect "help " dvenv help he
touch "$HOME/messages.txt" "$HOME/messy name.txt"
expect "$HOME/messages.txt $HOME/messy name.txt " dvenv events "$HOME/mes"
expect "$HOME/messages.txt " dvenv run -c "$HOME/messa"
expect "$HOME/messages.txt " dvenv crash --log "$HOME/messa"

[ "$failures" = 0 ] && echo "completion ok"
exit $((failures > 0))
