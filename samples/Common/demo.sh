# What the demo scripts share; sourced by them with their own arguments.

# Without --verbose a demo prints what happens, without details. What is left of the arguments is in `arguments`.
verbose=no
arguments=()
for argument in "$@"; do
    case "$argument" in
        --verbose) verbose=yes ;;
        *) arguments+=("$argument") ;;
    esac
done

build=${TORVANE_BUILD_DIR:-$PWD/build/windows-x86}
limit=60 # seconds

bold='' dim='' red='' green='' yellow='' blue='' magenta='' plain=''
if [ -t 1 ]; then
    bold=$'\e[1m' dim=$'\e[2m' red=$'\e[31m' green=$'\e[32m' yellow=$'\e[33m' blue=$'\e[34m'
    magenta=$'\e[35m' plain=$'\e[0m'
fi

say() { printf '\n%s== %s%s\n' "$bold" "$*" "$plain"; }

# Prints the output that hasn't been shown, if the script defines `show`, and ends it.
fail()
{
    if declare -F show > /dev/null; then show; fi
    printf '%s\n' "${red}demo: $*$plain" >&2
    exit 1
}

# The path as programs in Wine see it.
windowsPath() { printf 'Z:%s' "${1//\//\\}"; }

# writePage RECORDING: writes its page beside it and prints where it is.
writePage()
{
    local page=${1%.jsonl}.html
    wine "$TORVANE_BIN_DIR/blobs.exe" html "$(windowsPath "$1")" --output "$(windowsPath "$page")" --force \
        > /dev/null 2> "${page%.html}.errors" < /dev/null 3>&- 5>&- || fail "no page: $(cat "${page%.html}.errors")"
    [ -s "$page" ] || fail "the page of the Blobs is empty"
    rm "${page%.html}.errors"
    echo "What went over the pipes, as a page for a browser: ${page#"$PWD"/}"
}

# Wine's server must not inherit the script's files, or it keeps them open.
startWine() { wineserver > /dev/null 2>&1 < /dev/null 3>&- 5>&- || true; }

host='' # process id, while the host runs
killHost()
{
    [ -n "$host" ] || return 0
    kill "$host" 2> /dev/null || true
    wait "$host" 2> /dev/null || true
    host=''
}
trap killHost EXIT
trap 'echo; exit 130' INT
trap 'exit 143' TERM

waitForHost()
{
    local end=$((SECONDS + 60))
    while kill -0 "$host" 2> /dev/null; do
        [ "$SECONDS" -lt "$end" ] || fail "the host doesn't end"
        sleep 0.05
    done
    wait "$host" || fail "the host's exit status is $?"
    host=''
}
