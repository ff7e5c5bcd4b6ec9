# Shared by the scripts in this folder: where the project is, and how steps are reported.
# shellcheck shell=bash

project_root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)

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

# step TITLE COMMAND…: runs one command with its output in a log, prints one line with the time it
# took, and shows the end of the log when it fails. A terminal sees a running clock meanwhile.
step() {
    local title=$1 log started pid status=0
    shift
    mkdir -p "$project_root/build/logs"
    log="$project_root/build/logs/$(printf '%s' "$title" | tr -cs '[:alnum:]' '-').log"
    started=$SECONDS
    if [ -t 1 ]; then
        "$@" >"$log" 2>&1 </dev/null &
        pid=$!
        while kill -0 "$pid" 2>/dev/null; do
            printf '\r  ...   %-58s %4d s' "$title" $((SECONDS - started))
            sleep 0.2
        done
        wait "$pid" || status=$?
        printf '\r'
    else
        "$@" >"$log" 2>&1 </dev/null || status=$?
    fi
    if [ "$status" -ne 0 ]; then
        printf '  FAIL  %-58s %4d s\n\n' "$title" $((SECONDS - started))
        tail -n 40 "$log"
        printf '\nThe whole output: %s\n' "${log#"$project_root"/}"
        return "$status"
    fi
    printf '  ok    %-58s %4d s\n' "$title" $((SECONDS - started))
}

# library_version: MAJOR.MINOR.PATCH, as the headers say.
library_version() { sed -n 's/^#define GENERAL_VERSION_[A-Z]* \([0-9]*\).*/\1/p' "$project_root/include/general/version.h" | paste -sd .; }
