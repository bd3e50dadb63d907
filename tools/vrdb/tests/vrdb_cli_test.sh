#!/usr/bin/env bash
# vrdb as its users call it, against a process with a real console; and the examples of its manual page.
#
#   vrdb_cli_test.sh VRDB HOST BLOCK MANUAL
set -u
vrdb=$1 host=$2 block=$3 manual=$4
dir=$(mktemp -d)
export PATH=$(dirname "$vrdb"):$PATH LD_LIBRARY_PATH=$dir:${LD_LIBRARY_PATH-} XDG_STATE_HOME=$dir/state TERM=xterm
cd "$dir" || exit 1
for name in tone gain null; do cp "$block" lib$name.so; done
pids=()
trap 'exec 3>&-; [ ${#pids[@]} -eq 0 ] || { kill -CONT "${pids[@]}"; kill "${pids[@]}"; } 2>/dev/null; rm -rf "$dir"' EXIT
failures=0
fail() { echo "line ${BASH_LINENO[-2]}: $*: $(cat out err)" >&2; failures=$((failures + 1)); }

# expect CODE TEXT COMMAND...: how the command ends, and what it says on either output
expect() {
  local code=$1 text=$2 got; shift 2
  "$@" >out 2>err </dev/null; got=$?
  [ $got -eq "$code" ] || fail "$* ended with $got instead of $code"
  [ -z "$text" ] || grep -qF -- "$text" out err || fail "$* did not say '$text'"
}
await() { for _ in $(seq 500); do "$@" >/dev/null 2>&1 && return; sleep 0.02; done; fail "never came: $*"; }
is_stopped() { ! grep -h ^State "/proc/${pids[0]}/task/"*/status | grep -qv stopped; }
start_host() {
  rm -f feed; mkfifo feed
  "$host" <feed >ready & pids=($!); exec 3>feed
  await grep -q ready ready
  await vrdb status
}

expect 3 "no process that uses libvorn" vrdb status
start_host
expect 0 "fifo_0 25/100 (25%)" vrdb status

# Each example of the manual page runs, in the page's order.
sed -n 's/^\$ //p' "$manual" | sed 's/\\-/-/g; s/\\e/\\/g' >examples
[ "$(grep -c . examples)" -gt 12 ] || fail "the manual page lost its examples"
while read -r example; do
  bash -c "set -o pipefail; $example" </dev/null >out 2>err || fail "example: $example"
  case $example in
    "vrdb status") grep -q "RouteA is RUNNING" out || fail "example: $example" ;;
    "vrdb params"*) grep -q "^3 *gain *dB" out || fail "example: $example" ;;
    *batch*) [ "$(grep -c ' route RouteA RUNNING ' out)" -eq 2 ] || fail "example: $example" ;;
  esac
done <examples
grep -q '"name": "RouteA"' status.json && grep -q '"RouteA_tone_0"->"RouteA_gain_0"' graph.dot || fail "examples"
ls dump/*.pcm >out 2>err || fail "examples: no dump"
expect 0 "No route" vrdb status

# How a command ends.
expect 1 "Failed to create route; the log of process ${pids[0]}" vrdb newroute Routea
expect 1 "Failed to start route; there is no RouteQ" vrdb start RouteQ
expect 1 "Unknown command 'Status'" vrdb Status
expect 1 "Can't find RouteQ" vrdb delete RouteQ '!'
expect 1 "Failed to set dump log file; Done" vrdb setdump /nowhere
expect 2 "NAME is missing; usage: newroute NAME" vrdb newroute
expect 2 "a blank inside an argument" vrdb newroute "Route A"
expect 2 "cannot be sent" vrdb newroute "$(printf 'x%.0s' $(seq 1015))"
expect 2 "is no option" vrdb --nonsense status
expect 2 "not both" vrdb -f x status
expect 2 "cannot read" vrdb -f nowhere
expect 2 "cannot read" vrdb -f ""
expect 0 "No route" vrdb -- status
expect 1 "did not take everything" timeout 20 bash -c 'vrdb top --batch -i 0.01 >/dev/full'
expect 0 "newlink ROUTE RATE" vrdb newlink --help
grep -q $'\e' out && fail "colours in a pipe"
kill -STOP "${pids[0]}"
await is_stopped
expect 3 "busy with another client, or stopped" vrdb --timeout 0.1 newroute RouteZ
kill -CONT "${pids[0]}"

# A script stops at its first failure, and says where it is.
printf 'newroute RouteB # fine\n\nstart RouteQ\nnewroute RouteC\n' >script
expect 1 "vrdb: script:3: Failed to start route" vrdb -f script
expect 0 "RouteB" vrdb status
grep -q "Route[CZ]" out && fail "went on after the failure, or did what was given up on"
expect 1 "script:1: Failed to create route" vrdb -k -f script
expect 0 "RouteC" vrdb status
expect 1 "Failed to set parameter; RouteC has no x" vrdb setparam RouteC x 1 2
printf 'quit\nnewroute RouteD\n' | vrdb >out 2>err || fail "quit"
printf 'stop "Route B"\n' | vrdb >out 2>err; grep -q "standard input:1: \"Route: quotes keep no blank" err || fail "quotes"

# A picture is whole, or as it was.
echo before >now.svg
mkdir bin && printf '#!/bin/sh\necho half\nexit 3\n' >bin/dot && chmod +x bin/dot
expect 1 "'dot -Tsvg' failed (exit status 3)" env PATH="$dir/bin:$PATH" vrdb graph now.svg
expect 1 "apt install graphviz" env PATH=/nowhere "$vrdb" graph now.svg
expect 2 "ends in .svg" vrdb graph now.jpeg
grep -qx before now.svg && [ "$(echo now.svg*)" = now.svg ] || fail "a failed drawing left $(echo now.svg*)"
expect 0 "" vrdb graph now.dot
grep -q '"fifo_0" \[shape' now.dot || fail "graph"
if command -v dot >/dev/null; then
  expect 0 "" vrdb graph now.svg
  grep -q "</svg>" now.svg || fail "no picture"
fi

# The live view goes on without its process, and finds the next one.
vrdb top --json -i 0.02 >samples & top=$!
await grep -q "\"pid\":${pids[0]},.*framesPerSecond\":0.0" samples
kill "${pids[0]}"; wait "${pids[0]}" 2>/dev/null
await grep -q '"error":"no console' samples
start_host
await grep -q "\"pid\":${pids[0]}," samples
kill $top; wait $top 2>/dev/null
expect 2 "top: -n" vrdb top -n 0
expect 0 "fifo fifo_0 25 100 25" vrdb top -n 1

# A session completes words, and remembers its lines for its user only.
if command -v script >/dev/null; then
  printf 'newro\tRouteM\nstart Rou\t\nquit\n' | script -qec vrdb /dev/null >out 2>err
  grep -q "Created RouteM" out && grep -q "Failed to start\|Started RouteM" out || fail "session"
  [ "$(stat -c %a state/vrdb/history)" = 600 ] || fail "history can be read by others"
  [ "$(head -2 state/vrdb/history)" = $'newroute RouteM\nstart RouteM' ] || fail "history: $(cat state/vrdb/history)"
fi
exit $((failures > 0))
