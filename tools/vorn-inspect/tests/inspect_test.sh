#!/usr/bin/env bash
# inspect_test.sh VORN_INSPECT FOLDER UNRULY NOSYMBOL FOREIGN PAGE: lists and shows the plug-ins in FOLDER, and broken ones.
# PAGE is the page on the standard blocks, empty where some of them are not built.
set -u
inspect=$1 folder=$2 unruly=$3 nosymbol=$4 foreign=$5 page=$6
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
mkdir "$dir/plugins"
cp "$unruly" "$dir/plugins/libcrash.so"
cp "$unruly" "$dir/plugins/libleave.so"
cp "$nosymbol" "$dir/plugins/libnosymbol.so"
cp "$foreign" "$dir/plugins/libforeign.so"
cp "$folder/libgain.so" "$dir/plugins/libgood.so"
echo "no library" >"$dir/plugins/libtext.so"
cd "$dir" || exit 1
failures=0
fail() { echo "line ${BASH_LINENO[-2]}: $*" >&2; cat out err >&2; failures=$((failures + 1)); }

# expect STATUS TEXT ARGUMENT...: how vorn-inspect ends, and what it says on either output
expect() {
  local status=$1 text=$2
  shift 2
  "$inspect" "$@" >out 2>err
  [ $? -eq "$status" ] || fail "vorn-inspect $* did not end with $status"
  grep -qE -- "$text" out err || fail "vorn-inspect $* did not say '$text'"
}

expect 0 '^gain +makes a stream louder or quieter$'
for file in "$folder"/lib*.so; do
  name=$(basename "$file" .so)
  grep -qE "^${name#lib} +[^ ]" out || fail "no line for $name"
done
LD_LIBRARY_PATH=$dir/plugins:${LD_LIBRARY_PATH-} expect 0 '^good +makes a stream'
grep -q '^nosymbol' out && fail "lists a library that only lies there"

expect 0 '^crash +.*it crashes while it is loaded: Aborted$' plugins
[ "$(cut -d' ' -f1 out | xargs)" = "crash foreign good leave nosymbol text" ] || fail "the names"
expect 1 'it crashes while it is loaded: Aborted$' plugins/libcrash.so
expect 1 'ends the process while it is loaded, with exit status 7$' plugins/libleave.so
expect 1 'undefined symbol: CreateBlock$' plugins/libnosymbol.so
expect 1 'libtext.so: .*(file too short|invalid ELF header)$' plugins/libtext.so
expect 1 '^vorn-inspect: nowhere.so: .*No such file' nowhere.so
expect 1 "^vorn-inspect: no plug-in 'nosuch'" nosuch
expect 2 'markdown' --json --markdown
[ -s out ] && fail "an error on standard output"
expect 0 '^This plug-in says nothing of itself' plugins/libforeign.so

expect 0 '^ +0 +gain +dB +-inf\.\.60 +0 +any time ' gain
expect 0 '^Example: +gain -6$' gain
expect 0 '"unit": "dB"' gain --json
if [ -e "$folder/liblv2.so" ]; then
  expect 0 'further parameters of its own: give its arguments' lv2
  expect 0 '^ +3 +release +0\.01\.\.2 +0\.5 +any time +Release time \(s\)$' lv2 \
    http://plugin.org.uk/swh-plugins/fastLookaheadLimiter release=0.5
  grep -q further out && fail "asks for arguments that were given"
fi
expect 0 '^    "error": ".*Aborted"' plugins --json

# Every block shows what it takes, and gives an example of itself.
for file in "$folder"/lib*.so; do
  name=$(basename "$file" .so) name=${name#lib}
  expect 0 "^Example: .* $name( |$)" "$name"
done

if [ -n "$page" ]; then
  "$inspect" --markdown "$folder" | diff "$page" - || fail "the page is not current: vorn-inspect --markdown $folder >$page"
fi
exit $((failures > 0))
