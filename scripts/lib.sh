# shellcheck shell=bash
# What the scripts share. Source it first: it moves to the project's folder.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

script=$(basename "$(dirname "$0")")/${0##*/}
readonly script

say() { echo "==> $*"; }

fail() {
  echo "$script: $*" >&2
  exit 1
}

# quietly WHAT COMMAND...: says WHAT, runs COMMAND and shows what it wrote only when it fails.
quietly() {
  local what=$1 log
  shift
  say "$what"
  log=$(mktemp)
  if ! "$@" >"$log" 2>&1; then
    cat "$log" >&2
    rm -f "$log"
    fail "$what: failed"
  fi
  rm -f "$log"
}
