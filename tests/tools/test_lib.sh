# Shared by the tool test scripts (sourced): a scratch folder, failure
# counting and one way to run the tool and check its exit status.
# Expects $tool (absolute path of lmimage) to be set by the sourcing script.
tmp=$(mktemp -d) || exit 1
trap 'rm -rf "$tmp"' EXIT
failures=0

fail() {
  echo "FAIL: $*" >&2
  failures=$((failures + 1))
}

run() {
  last="lmimage $*"
  "$tool" "$@" >"$tmp/out" 2>"$tmp/err"
  status=$?
}

expect_status() {
  [ "$status" -eq "$1" ] || fail "$last: exit status $status, expected $1 ($(head -c 300 "$tmp/err"))"
}

# The whole line must match, so column alignment is checked too.
expect_line() {
  grep -Fqx -- "$1" "$tmp/out" || fail "$last: no stdout line '$1'"
}

expect_err_lines() {
  [ "$(wc -l <"$tmp/err")" -eq "$1" ] || fail "$last: $(wc -l <"$tmp/err") stderr lines, expected $1"
}

# Ends the script with the verdict; $1 names the checks ("all $1 passed").
finish() {
  if [ "$failures" -ne 0 ]; then
    echo "$failures ${1:-} check(s) failed" >&2
    exit 1
  fi
  echo "all ${1:-} checks passed"
  exit 0
}
