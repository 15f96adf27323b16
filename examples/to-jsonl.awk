#!/usr/bin/awk -f
# SPDX-License-Identifier: Apache-2.0
# The table as JSON Lines: vxu_show_scenarios -A | awk -f to-jsonl.awk
#
# Columns are counted as in to-csv.awk; the names of the members come from the header.
BEGIN {
    FS = "|"
    for (i = 1; i < 32; i++) control[sprintf("%c", i)] = sprintf("\\u%04x", i)
}
NR == 1 {
    for (i = 1; i <= NF; i++) title[i] = tolower($i)
    next
}
NF >= 9 {
    bars = NF - 9 # in the scenario's name
    line = ""
    for (i = 1; i <= 9; i++) {
        value = $(i <= 4 ? i : i + bars)
        for (bar = 1; i == 4 && bar <= bars; bar++) value = value "|" $(4 + bar)
        line = line (i > 1 ? ", " : "") "\"" title[i] "\": \"" escaped(value) "\""
    }
    print "{" line "}"
}
function escaped(text,    i, c, result) {
    for (i = 1; i <= length(text); i++) {
        c = substr(text, i, 1)
        result = result (c == "\"" || c == "\\" ? "\\" c : c in control ? control[c] : c)
    }
    return result
}
