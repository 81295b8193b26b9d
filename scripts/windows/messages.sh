#!/bin/sh
# messages.sh: messages that are built under Wine and on Linux are the same octets, and so are the documents that they are written
# to; each system reads what the other wrote. So with both builds of the command. Of Linux it builds no more than the command;
# the preset "windows" is built.
set -eu
cd "$(dirname "$0")/../.."
wine=$PWD/scripts/windows/wine.sh
bin=$PWD/build/windows/bin
scripts/build.sh zbase
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT

refuse() {
    echo "messages.sh: $1" >&2
    exit 1
}
# same FILE FILE WHAT: the files are there, not empty, and the same octets.
same() {
    [ -s "$1" ] && cmp "$1" "$2" >&2 || refuse "$3"
}

libraries=$PWD/build/release
c++ -std=c++20 -O1 -I. tests/platform/os/windows/children/RecordProbe.cpp -o "$place/probe" -L"$libraries/ZLiteXML" -L"$libraries/Base" \
    -lZLiteXML -lZBase -Wl,-rpath,"$libraries/ZLiteXML:$libraries/Base"

cd "$place"
mkdir linux windows
./probe write linux
"$wine" "$bin/RecordProbe.exe" write windows
[ "$(ls linux)" = "$(ls windows)" ] || refuse "not the same files"
for name in $(ls linux); do same "linux/$name" "windows/$name" "$name is another under Wine"; done
./probe read linux read
./probe read windows read-windows
"$wine" "$bin/RecordProbe.exe" read linux wine-read
"$wine" "$bin/RecordProbe.exe" read windows wine-read-windows
for name in read-windows wine-read wine-read-windows; do same read $name "$name: a document makes another message"; done
echo "$(wc -l <linux/records) messages and $(ls linux/*.xml | wc -l) documents are the same octets on both systems"

# The command: what one writes is read by the other, and shown alike.
zbase() { "$libraries/tools/zbase/zbase" "$@"; }
wine_zbase() { "$wine" "$bin/zbase.exe" "$@"; }
for number in 0 1 2 3; do
    wine_zbase message --xml "linux/$number.xml" >windows.xml
    zbase message --xml "windows/$number.xml" >linux.xml
    same linux.xml windows.xml "message --xml writes another document $number"
    for form in --json "--parameters --texts"; do
        zbase message $form windows.xml >shown
        wine_zbase message $form linux.xml >wine-shown
        same shown wine-shown "message $form shows document $number otherwise"
    done
done
cat linux/*.xml >text
for encoding in utf16le ascii; do
    zbase text --replace --to $encoding --output there text
    wine_zbase text --replace --to $encoding --output wine-there text
    same there wine-there "text --to $encoding converts otherwise"
    zbase text --from $encoding --to utf8 --output back wine-there
    wine_zbase text --from $encoding --to utf8 --output wine-back there
    same back wine-back "text --from $encoding converts otherwise"
    [ $encoding = ascii ] || same text back "text is another after $encoding"
done
echo "the command reads, writes and shows them alike"
