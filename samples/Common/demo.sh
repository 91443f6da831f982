# What the demo scripts share; sourced by them.

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
