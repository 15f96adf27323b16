# SPDX-License-Identifier: Apache-2.0
# shellcheck shell=bash
# Completion of vxu_show_scenarios for bash 4.4 or newer.
#
# The line up to the cursor is cut into words here, as the shell itself will cut it: readline breaks
# words at characters such as ":" that are ordinary ones in names. Only directories are read, and no
# command is run.

# Cut a line. Sets words (the finished ones) and cur, without quotes; raw, which is cur as it
# stands; quote, the quote that is open; separated, whether a word could begin at the end.
_vxu_show_scenarios_cut() {
    local line=$1 i char
    words=() cur='' raw='' quote='' separated=1
    for ((i = 0; i < ${#line}; i++)); do
        char=${line:i:1}
        case $quote$char in
        "''" | '""') quote='' raw+=$char ;;
        \'?) cur+=$char raw+=$char ;;
        [\'\"]) quote=$char raw+=$char separated='' ;;
        \\ | \"\\)
            i=$((i + 1))
            [[ $quote && ${line:i:1} != [\\\"\$\`] ]] && cur+=\\
            cur+=${line:i:1} raw+=$char${line:i:1} separated=''
            ;;
        [[:blank:]])
            [[ $separated ]] || words+=("$cur")
            cur='' raw='' separated=1
            ;;
        *) cur+=$char raw+=$char separated='' ;;
        esac
    done
}

# Read options as the command does. Adds their letters to seen; keeps the argument of -w in place,
# and in pending the letter of an option whose argument is still to come.
_vxu_show_scenarios_read() {
    local word letter
    for word in "${@:2}"; do
        if [[ $pending ]]; then
            [[ $pending == [wW] ]] && place=$word
            pending=''
        elif [[ $word == -- ]]; then
            seen+=-
            return
        elif [[ $word == -?* ]]; then
            word=${word#-}
            while [[ $word ]]; do
                letter=${word:0:1} word=${word:1} seen+=$letter
                [[ $letter == [upwWsktT] ]] || continue
                if [[ ! $word ]]; then
                    pending=$letter
                elif [[ $letter == [wW] ]]; then
                    place=$word
                fi
                break
            done
        fi
    done
}

# Add the options that may still follow those seen.
_vxu_show_scenarios_options() {
    local letter excluded
    for letter in A u p w W s k g t T d; do
        case $letter in
        A | u) excluded='[Aupw]' ;;
        p) excluded='[Aup]' ;;
        w) excluded='[Auw]' ;;
        W) excluded='[AupW]' ;;
        s | k | g) excluded=$letter ;;
        *) excluded='[-]' ;;
        esac
        # shellcheck disable=SC2053 # a pattern
        [[ $seen == *$excluded* ]] || found+=("-$letter")
    done
}

# Add the directories in $1 whose names begin with $2, each between $3 and $4.
_vxu_show_scenarios_directories() {
    local names=("$1/$2"*/) i
    [[ -d ${names[0]} ]] || return
    names=("${names[@]%/}")
    names=("${names[@]##*/}")
    if [[ ${names[*]} == *[[:cntrl:]]* ]]; then
        for i in "${!names[@]}"; do
            [[ ${names[i]} == *[[:cntrl:]]* ]] && unset "names[i]"
        done
    fi
    names=("${names[@]/#/"$3"}")
    found+=("${names[@]/%/$4}")
}

# Add what may stand for the argument $2 of option $1.
_vxu_show_scenarios_argument() {
    local top=$VX_WDIR/workspace head=${2%/*} profile=admin/default
    [[ $seen == *w* && $place =~ ^([^/]+)/+([^/]+) ]] &&
        profile=${BASH_REMATCH[1]}/${BASH_REMATCH[2]}
    case $1:$2 in
    w:*/*/* | W:*/* | p:*/*/*) ;;
    w:*/*) _vxu_show_scenarios_directories "$top/$head" "${2##*/}" "$head/" ;;
    w:*) _vxu_show_scenarios_directories "$top" "$2" '' / ;;
    W:*) _vxu_show_scenarios_directories "$top" "$2" ;;
    p:*/*) _vxu_show_scenarios_directories "$top/$profile/maranth/$head" "${2##*/}" "$head/" ;;
    p:*) _vxu_show_scenarios_directories "$top/$profile/maranth" "$2" ;;
    t:*) found+=(functional) ;;
    esac
}

# Offer what was found and goes on from $cur, without the part that readline leaves standing, which
# is $1, and quoted as the quote that is open there asks for.
_vxu_show_scenarios_offer() {
    local IFS=$' \t\n' each all kept=$cur words cur raw quote separated
    _vxu_show_scenarios_cut "$1"
    for each in "${!found[@]}"; do
        [[ ${found[each]} == "$kept"* ]] || unset "found[each]"
    done
    [[ ${found[*]} ]] || return
    found=("${found[@]#"$cur"}")
    case $quote in
    \') COMPREPLY=("${found[@]//\'/\'\\\'\'}") ;;
    \")
        found=("${found[@]//\\/\\\\}")
        found=("${found[@]//\"/\\\"}")
        found=("${found[@]//\$/\\\$}")
        found=("${found[@]//\`/\\\`}")
        COMPREPLY=("${found[@]//!/\"\'!\'\"}") # history reads what is between double quotes
        ;;
    *)
        printf -v all '%q\n' "${found[@]}"
        set -f # for this function and its caller alone: see "local -"
        # shellcheck disable=SC2206 # cut at newlines, which no quoted name holds
        IFS=$'\n' COMPREPLY=($all)
        ;;
    esac
}

_vxu_show_scenarios() {
    local - words cur raw quote separated seen='' pending='' place='' found=() kept fails=''
    local line=${COMP_LINE:0:COMP_POINT}
    [[ $COMP_LINE ]] || line="${COMP_WORDS[*]:0:COMP_CWORD+1}"
    COMPREPLY=()
    set +f
    shopt -q failglob && fails=1 && shopt -u failglob
    _vxu_show_scenarios_cut "$line"
    _vxu_show_scenarios_read "${words[@]}"
    if [[ $pending ]]; then
        _vxu_show_scenarios_argument "$pending" "$cur"
    elif [[ $seen != *-* && $cur =~ ^-([Adg]*)([upwWtsTk])(.+)$ ]]; then
        seen+=${BASH_REMATCH[1]} kept=${cur%"${BASH_REMATCH[3]}"}
        _vxu_show_scenarios_argument "${BASH_REMATCH[2]}" "${BASH_REMATCH[3]}"
        found=("${found[@]/#/"$kept"}")
    elif [[ $seen != *-* && ($cur == -* || ! $cur) ]]; then
        _vxu_show_scenarios_options
    fi
    [[ $fails ]] && shopt -s failglob
    [[ ${found[*]} == */ || $pending$cur =~ ^p[^/]*$ ]] && compopt -o nospace 2>/dev/null
    _vxu_show_scenarios_offer "${raw%"${2-$raw}"}"
}

complete -F _vxu_show_scenarios vxu_show_scenarios
