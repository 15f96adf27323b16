#!/usr/bin/awk -f
# SPDX-License-Identifier: Apache-2.0
# The table as CSV: vxu_show_scenarios -A | awk -f to-csv.awk
#
# The five columns of attributes never hold a bar, so that they are counted from the right. Of the
# four names only the first three are cut at a bar: whatever is left over belongs to the scenario.
# A row without attributes (its file vanished while the table was made) is left out.
BEGIN { FS = "|" }
NF < 9 { next }
{
    line = ""
    for (i = 1; i <= 3; i++) line = line quoted($i) ","
    scenario = $4
    for (i = 5; i <= NF - 5; i++) scenario = scenario "|" $i
    line = line quoted(scenario)
    for (i = NF - 4; i <= NF; i++) line = line "," quoted($i)
    print line
}
function quoted(text) {
    if (text !~ /[",\r]/) return text
    gsub(/"/, "\"\"", text)
    return "\"" text "\""
}
