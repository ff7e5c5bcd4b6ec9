# Shared by the scripts in this folder: where the project is, and how steps are reported.
# shellcheck shell=bash

# shellcheck source=script/lib/environment.sh
source "$(dirname "${BASH_SOURCE[0]}")/environment.sh"

project_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
logs=${GENERAL_LOGS:-$project_root/build/logs}

# say TEXT…: one line for the reader.
say() { printf '%s\n' "$*"; }

# fail TEXT…: says what went wrong and what to do, then stops the script.
fail() {
    printf '\n%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

# usage_if_asked "$@": prints the comment block at the top of the calling script for -h and --help.
usage_if_asked() {
    case "${1:-}" in
    -h | --help)
        sed -n '2,/^[^#]/{ /^#/s/^# \{0,1\}//p; }' "$0"
        exit 0
        ;;
    esac
}

# show_clock TITLE: a line on the terminal with the time so far, for as long as the script lives.
show_clock() {
    local started=$SECONDS
    while kill -0 $$ 2>/dev/null; do
        printf '\r  ...   %-58s %4d s' "$1" $((SECONDS - started))
        sleep 0.2
    done
}

# looked_at COUNT WHAT…: the last line of a check; a check that found nothing to look at fails.
looked_at() {
    [ "$1" -gt 0 ] || { echo "there are no ${*:2} to look at"; return 1; }
    echo "looked at $*"
}

# attempt TITLE COMMAND…: runs one command with its output in a log, prints one line with the time it
# took and what a check looked at, and shows the end of the log when it fails. step_status says how it ended. A command that is a
# function ends at its first failing command. A terminal sees a running clock meanwhile.
attempt() {
    local - title=$1 log started clock=
    shift
    set +e
    # After "if", "||" or "&&" the shell would ignore failing commands, in the function and all it calls.
    (set -e; false; true)
    [ "$?" = 1 ] || fail "'$title' runs under a condition, which hides what fails in it; use attempt and step_status"

    mkdir -p "$logs" || fail "$project_root has to be a folder that you may write in"
    log="$logs/$(printf '%s' "$title" | tr -cs '[:alnum:]' '-').log"
    started=$SECONDS
    [ ! -t 1 ] || { show_clock "$title" & clock=$!; }
    (set -e; "$@") >"$log" 2>&1 </dev/null
    step_status=$?
    [ -z "$clock" ] || { kill "$clock"; wait "$clock"; printf '\r'; } 2>/dev/null
    if [ "$step_status" -eq 0 ]; then
        printf '  ok    %-58s %4d s%s\n' "$title" $((SECONDS - started)) "$(sed -n '$s/^looked at /   /p' "$log")"
        return
    fi
    printf '  FAIL  %-58s %4d s\n\n' "$title" $((SECONDS - started))
    tail -n 40 "$log"
    printf '\nThe whole output: %s\n' "${log#"$project_root"/}"
}

# step TITLE COMMAND…: an attempt that has to succeed; the script ends with it otherwise.
step() {
    attempt "$@"
    return "$step_status"
}

# is_clone: whether git takes the project for a work tree with a commit. An unpacked archive is none, nor
# does git read the clone of another user.
is_clone() {
    [ -z "$(git -C "$project_root" rev-parse --show-cdup 2>/dev/null || echo none)" ] &&
        git -C "$project_root" rev-parse --quiet --verify HEAD >/dev/null 2>&1
}

# library_version: MAJOR.MINOR.PATCH, as the headers say.
library_version() { sed -n 's/^#define GENERAL_VERSION_[A-Z]* \([0-9]*\).*/\1/p' "$project_root/include/general/version.h" | paste -sd .; }
