# Shared by script/test and script/reliability: the tests of the DLL on every Windows that Wine can play.
# shellcheck shell=bash disable=SC2034,SC2154 # what the scripts read here, and what console.sh gives

# By Wine's names, with the number that such a system tells. Wine takes a name that it does not know for win7.
windows_versions=(win95 win98 winme nt40 win2k winxp win7 win81 win10)
declare -A windows_number=([win95]="4.0.67*" [win98]="4.10.*" [winme]="4.90.*" [nt40]="4.0.1381" [win2k]="5.0.*"
    [winxp]="5.1.*" [win7]="6.1.*" [win81]="6.3.*" [win10]="10.0.*")
declare -A windows_title=([win95]="Windows 95" [win98]="Windows 98" [winme]="Windows ME" [nt40]="Windows NT 4.0"
    [win2k]="Windows 2000" [winxp]="Windows XP" [win7]="Windows 7" [win81]="Windows 8.1" [win10]="Windows 10")

# prepare_version VERSION: a prefix in which Wine is that version, which is what the system has to say.
prepare_version() {
    local said
    cmake/run-under-wine reg add 'HKCU\Software\Wine' /v Version /d "$1" /f
    said=$(cmake/run-under-wine cmd /c ver | tr -d '\r')
    said=${said##*Microsoft Windows }
    # shellcheck disable=SC2053 # a pattern
    [[ $said == ${windows_number[$1]} ]] || { echo "as $1, Wine says that it is Windows $said"; return 1; }
}

# test_version VERSION: the Windows half's tests on that version; their counts go into build/versions/VERSION.
# The package and the documents are about building, the same on every version.
test_version() {
    export GENERAL_WINE_PREFIX=$PWD/build/versions/$1/wine GENERAL_TEST_RESULTS=build/versions/$1/results
    rm -rf "$GENERAL_TEST_RESULTS"
    mkdir -p "$GENERAL_TEST_RESULTS"
    prepare_version "$1"
    ctest --preset win32 --exclude-regex '^(package$|documents/)'
    python3 script/lib/reliability.py version "$GENERAL_TEST_RESULTS"
}

# test_versions VERSION…: a line for each; the script ends when all are through and one failed.
test_versions() {
    local version failed=()
    for version in "$@"; do
        attempt "as ${windows_title[$version]}" test_version "$version"
        [ "$step_status" -eq 0 ] || failed+=("$version")
    done
    [ ${#failed[@]} -eq 0 ] || fail "tests failed as ${failed[*]}"
}
