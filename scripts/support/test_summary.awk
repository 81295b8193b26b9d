# test_summary.awk OUTPUT LOG: the result of a run of ctest, from its output and its LastTest.log.

# The lists at the end of ctest's output: "\t 12 - Name (Reason)".
FNR == NR && /tests passed, .* out of/ {
    match($0, /out of [0-9]+/)
    total = substr($0, RSTART + 7, RLENGTH - 7) + 0
    match($0, /[0-9]+ tests failed/)
    failed = substr($0, RSTART) + 0
}
FNR == NR && /^Total Test time/ { seconds = $(NF - 1) }
FNR == NR && /^The following tests did not run:/ { list = "skipped"; next }
FNR == NR && /^The following tests FAILED:/ { list = "failed"; next }
FNR == NR && list != "" && /^[ \t]+[0-9]+ - / {
    entry = $0
    sub(/^[ \t]+[0-9]+ - /, "", entry)
    name = entry
    sub(/ \([^()]*\).*$/, "", name)
    how = substr(entry, length(name) + 2)
    if (list == "failed") failures[++failureCount] = name
    else skips[++skipCount] = name
    lists[name] = list
    hows[name] = how
    next
}
FNR == NR && list != "" && NF == 0 { list = "" }
FNR == NR { next }
FNR == 1 { name = "" }

# The output of each of them, between a ruler and "<end of output>".
/^[0-9]+\/[0-9]+ Test: / {
    name = $0
    sub(/^[0-9]+\/[0-9]+ Test: /, "", name)
    inside = 0
    isReason = 0
    next
}
/^-----------------------------/ && !inside && (name in lists) && !(name in said) { inside = 1; said[name] = ""; next }
/^<end of output>/ { inside = 0; next }
!inside { next }
lists[name] == "failed" { said[name] = said[name] $0 "\n"; next }
isReason { reasons[name] = $0; isReason = 0 }
/: Skipped$/ { isReason = 1 }

END {
    for (i = 1; i <= failureCount; ++i) {
        name = failures[i]
        print "== " name " " hows[name]
        if (said[name] != "") printf "%s", said[name]
    }
    for (i = 1; i <= skipCount; ++i) {
        name = skips[i]
        why = name in reasons ? reasons[name] : hows[name]
        if (!(why in byReason)) order[++reasonCount] = why
        byReason[why] = byReason[why] "\n    " name
    }
    print ""
    for (i = 1; i <= reasonCount; ++i) print "Skipped, " order[i] ":" byReason[order[i]]
    if (failureCount > 0) print "Failed:"
    for (i = 1; i <= failureCount; ++i) print "    " failures[i] " " hows[failures[i]]
    printf "%d passed, %d failed, %d skipped, in %d s\n", total - failed - skipCount, failed, skipCount, seconds
}
