#!/usr/bin/env bash
# bash, zsh and fish complete commands, options, values, and the names that the database has.
# shellcheck disable=SC2317 # functions are called by the shells' names
set -uo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
broken=0
DESTDIR=$work/stage cmake --install "$QIM_BUILD_DIR" --prefix /opt/policy >"$work/log"
share=$work/stage/opt/policy/share
export PATH=$work/stage/opt/policy/bin:$PATH ROV_DB=$work/db
cd "$QIM_SOURCE_DIR" || exit
{ qimctl import examples/edge-all-types.json examples/edge-router.rfc8519.json &&
  qimctl snapshot make before; } >"$work/log" 2>&1 || { cat "$work/log" && exit 1; }

complain() {
  echo "completion_test: $*"
  broken=1
}

# The words that a shell offers at the end of a command line, one a line.
in_words() { # <word>...
  sh "$share/$program/words" "$@" | cut -f 1 | grep -F -- "${*: -1}"
}

in_bash() {
  # shellcheck disable=SC2016 # for the other shell
  bash --norc -c '
    source /usr/share/bash-completion/bash_completion
    source "$1"
    shift
    COMP_WORDS=("$@") COMP_LINE="$*"
    COMP_CWORD=$(($# - 1)) COMP_POINT=${#COMP_LINE}
    _qim "$1"
    printf "%s\n" "${COMPREPLY[@]}"' bash "$share/bash-completion/completions/$program" "$program" "$@"
}

in_zsh() {
  # shellcheck disable=SC2016
  zsh -f -c '
    fpath=($1 $fpath)
    shift
    autoload -Uz compinit && compinit -u -D
    [[ $_comps[$1] = _$1 ]] || exit
    _describe() { print -l -- "${(@P)3}" | sed "s/\([^\\\\]\):.*/\1/"; }
    _files() { print :files; }
    words=("$@") CURRENT=$#
    autoload +X -Uz _$1
    _$1' zsh "$share/zsh/site-functions" "$program" "$@"
}

in_fish() {
  # shellcheck disable=SC2016
  fish --no-config -c 'source $argv[1]; complete -C "$argv[2]"' \
    "$share/fish/vendor_completions.d/$program.fish" "$program $*" | cut -f 1
}

offers() { # <shell> <what must be offered> <word>...
  local shell=$1 wanted=$2 said
  shift 2
  said=$("in_$shell" "$@" 2>&1)
  grep -qxF -- "$wanted" <<<"$said" || complain "$shell offers no '$wanted' for '$*', but: ${said:0:300}"
}

program=qimctl
shells=(words)
for shell in bash zsh fish; do
  if command -v $shell >/dev/null && { [ $shell != bash ] || [ -e /usr/share/bash-completion/bash_completion ]; }; then
    shells+=("$shell")
  elif [ -n "${CI-}" ]; then
    complain "there is no $shell"
  fi
done
for shell in "${shells[@]}"; do
  offers "$shell" acl ac
  offers "$shell" --lossy import --los
  offers "$shell" make snapshot ma
  offers "$shell" management-in acl man
  offers "$shell" before rollback be
  offers "$shell" management-in/arp show management-in/a
  [ "$shell" = zsh ] || offers "$shell" yaml acl -o ya
done
# bash has words in front of a colon already; zsh guards it.
offers words if:mgmt0/in trace if:m
offers words if:mgmt0/in trace ''
offers fish if:mgmt0/in trace if:m
offers bash mgmt0/in trace if:m
offers words rfc8519 import --format rf
offers words trace help tra
offers words :files apply ''
offers bash README.md apply READ
[ -z "$(in_words acl --db "$work/nowhere" man)" ] || complain "names of another database are offered"
[ -z "$(in_words acl --no-such-option=1 management-in x)" ] || complain "names are offered where none may be"
# The processes, where they are built.
for shell in "${shells[@]}"; do
  program=qim-enforce
  [ ! -e "$share/$program" ] || offers "$shell" --dry-run --dr
  program=qimd
  [ ! -e "$share/$program" ] || offers "$shell" --accept-cluster --ac
  program=qimctl
  [ ! -e "$share/qimd" ] || offers "$shell" rollout fleet rollo
done
program=qim-enforce
[ ! -e "$share/$program" ] || offers words :folders --db ''
program=qimd
[ ! -e "$share/$program" ] || offers words :files --config ''
exit $broken
