#!/bin/sh
# run.sh SERVER RECEIVER ZBASE: lets the server crash, receives its report, and shows what arrived.
set -eu
server=$1 receiver=$2 zbase=$3
place=$(mktemp -d)
trap 'kill "$listener" 2>/dev/null || :; rm -rf "$place"' EXIT
listener=
mkdir "$place/reports"

"$receiver" "$place/reports" >"$place/log" &
listener=$!
until address=$(grep -m 1 '^http' "$place/log"); do
    kill -0 "$listener" || exit 1
    sleep 0.1
done
echo "a receiver listens"

status=0
"$server" "$place" "$address" || status=$?
echo "the server ended by signal $((status - 128))"

# The server ended only after its report had arrived.
cat "$place/reports/1.keys"
"$zbase" crash show "$place/reports/1.dmp"
