# progress.sh is sourced. It runs commands whose output is shown only if they fail, with their progress: on a terminal in
# one line that is rewritten, else in a line every five seconds.

progress_seconds=${ZBASE_PROGRESS_SECONDS:-5}
progress_reporter=""
progress_log=""

end_progress() {
    [ -z "$progress_reporter" ] || kill "$progress_reporter" 2>/dev/null || :
    [ -z "$progress_log" ] || rm -f "$progress_log"
}
trap end_progress EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# how_far LOG: the last line of a log, shortened.
how_far() {
    tail -c 8192 "$1" | tr '\r' '\n' | awk '
        /^(dlstatus|pmstatus):/ {  # of apt
            sub(/^dlstatus:[0-9]+/, "dlstatus")
            percent = match($0, /:[0-9.]+:/) ? int(substr($0, RSTART + 1)) : 0
            last = (/^dl/ ? "downloading " : "installing ") percent " %: " substr($0, RSTART + RLENGTH)
            next
        }
        /^ *[0-9]+\/[0-9]+ +Test +#/ {  # of ctest
            last = $1 " tests"
            next
        }
        /^ +Start +[0-9]+: / || /^npm warn/ { next }
        NF { last = $0 }
        END { print substr(last, 1, 70) }'
}

# A log without the lines of success.
show_log() {
    grep -v -E '^(\[[0-9]+/[0-9]+\] |\[ RUN |\[ +OK |dlstatus:|pmstatus:|-- )' "$1" || :
}

report_progress() {
    second=0
    while sleep 1 >/dev/null 2>&1 && kill -0 $$ 2>/dev/null; do
        second=$((second + 1))
        if [ -t 1 ]; then
            printf '\r\033[K  %d s  %s' "$second" "$(how_far "$2")"
        elif [ $((second % progress_seconds)) -eq 0 ]; then
            printf '  %s: %d s  %s\n' "$1" "$second" "$(how_far "$2")"
        fi
    done
}

# run_logged LOG TITLE COMMAND [ARGUMENT...]: writes the output of the command to the log. Returns its status.
run_logged() {
    run_log=$1
    echo "$2 ..."
    report_progress "$2" "$run_log" &
    progress_reporter=$!
    shift 2
    run_status=0
    "$@" >"$run_log" 2>&1 || run_status=$?
    { kill "$progress_reporter" && wait "$progress_reporter"; } 2>/dev/null || :
    progress_reporter=""
    [ ! -t 1 ] || printf '\r\033[K'
    return "$run_status"
}

# quietly TITLE COMMAND [ARGUMENT...]: shows the output of the command only if it fails. Returns its status.
quietly() {
    progress_log=$(mktemp)
    quiet_status=0
    run_logged "$progress_log" "$@" || quiet_status=$?
    [ "$quiet_status" -eq 0 ] || show_log "$progress_log" >&2
    rm -f "$progress_log"
    progress_log=""
    return "$quiet_status"
}
