# SPDX-License-Identifier: Apache-2.0
# Completion of vxu_show_scenarios for fish. Only directories are read, and no command is run.

# Read the options before the cursor as the command does: a line for each, its letter and its
# argument, and a line "-" where options end.
function __vxu_show_scenarios_seen
    set -l pending ''
    for word in (commandline -opc)[2..]
        if test -n "$pending"
            echo "$pending$word"
            set pending ''
        else if test "$word" = --
            echo -
            return
        else
            set -l rest (string match -rg -- '^-([Adg]*)([upwWsktT])?(.*)$' "$word")
            string split -n '' -- $rest[1]
            if test -z "$rest[2]"
            else if test -n "$rest[3]"
                echo "$rest[2]$rest[3]"
            else
                set pending $rest[2]
            end
        end
    end
end

# Whether none of the options in a list of letters stands before the cursor.
function __vxu_show_scenarios_lacks --argument-names letters
    not __vxu_show_scenarios_seen | string match -qr -- "^[-$letters]"
end

# The argument at the cursor, without quotes and without the option that it may be attached to.
function __vxu_show_scenarios_argument --argument-names letter
    set -l token (commandline -ct)
    for end in '' \' '"'
        string unescape -- "$token$end" 2>/dev/null
        and break
    end | string replace -r -- "^-[Adg]*$letter" ''
end

# The directories in a place, each behind a head and before a tail.
function __vxu_show_scenarios_directories --argument-names place head tail
    set -l paths $place/*/
    set -l names (string match -v -r -- '[[:cntrl:]]' $paths | string match -rg -- '([^/]+)/$')
    string join -- \n "$head"$names"$tail"
end

function __vxu_show_scenarios_places
    set -l head (string match -rg -- '^([^/]*)/[^/]*$' (__vxu_show_scenarios_argument w))
    if test -n "$head"
        __vxu_show_scenarios_directories $VX_WDIR/workspace/$head $head/
    else
        __vxu_show_scenarios_directories $VX_WDIR/workspace '' /
    end
end

function __vxu_show_scenarios_projects
    set -l place admin/default
    set -l seen (__vxu_show_scenarios_seen)
    if string match -qr '^w' -- $seen
        set -l chosen (string match -rg -- '^[wW]([^/]+/+[^/]+|.*)' $seen)[-1]
        string match -qr / -- $chosen
        and set place $chosen
    end
    set -l projects $VX_WDIR/workspace/$place/maranth
    set -l head (string match -rg -- '^([^/]*)/[^/]*$' (__vxu_show_scenarios_argument p))
    if test -n "$head"
        __vxu_show_scenarios_directories $projects/$head $head/
    else
        __vxu_show_scenarios_directories $projects
    end
end

complete -c vxu_show_scenarios -f
complete -c vxu_show_scenarios -s A -n '__vxu_show_scenarios_lacks Aupw' -d 'list every workspace and profile'
complete -c vxu_show_scenarios -s u -n '__vxu_show_scenarios_lacks Aupw' -x -d 'list what a user may see'
complete -c vxu_show_scenarios -s p -n '__vxu_show_scenarios_lacks Aup' -x -a '(__vxu_show_scenarios_projects)' -d 'list one project or sub-project'
complete -c vxu_show_scenarios -s w -n '__vxu_show_scenarios_lacks Auw' -x -a '(__vxu_show_scenarios_places)' -d 'list one profile of a workspace'
complete -c vxu_show_scenarios -s W -n '__vxu_show_scenarios_lacks AupW' -x -a '(__vxu_show_scenarios_directories $VX_WDIR/workspace)' -d 'list a workspace'
complete -c vxu_show_scenarios -s s -n '__vxu_show_scenarios_lacks s' -x -d 'changed within so many days'
complete -c vxu_show_scenarios -s k -n '__vxu_show_scenarios_lacks k' -x -d 'name holds one of up to three words'
complete -c vxu_show_scenarios -s t -n '__vxu_show_scenarios_lacks -' -x -a functional -d 'test type'
complete -c vxu_show_scenarios -s T -n '__vxu_show_scenarios_lacks -' -x -d 'a tag holds a text'
complete -c vxu_show_scenarios -s d -n '__vxu_show_scenarios_lacks -' -d 'trace the walk'
complete -c vxu_show_scenarios -s g -n '__vxu_show_scenarios_lacks g' -d 'print totals'
