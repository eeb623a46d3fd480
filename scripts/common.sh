# What ./run, ./test and .ci/run share. Sourced, with `root` and `me` (the name that starts every
# line) set; stops at the first failure with one line that says what failed and where to read more.

say() { printf '%s: %s\n' "$me" "$*"; }

# fail TEXT [LOG]: where nobody can open the log afterwards (show_logs is set), its end comes first.
fail() {
    if [[ ${2:-} ]]; then
        [[ -z ${show_logs:-} ]] || tail -n 80 "$2"
        set -- "$1; the whole output is in ${2#"$root/"}"
    fi
    say "$1" >&2
    exit 1
}

# install_packages GROUP...: sees to it that every package of the groups is there. Asks dpkg first,
# so that nothing is fetched, and nothing said, when nothing is missing. Of a package that brings a
# service only the program is wanted: it is not started, now or at the next boot.
install_packages() {
    local group package reason missing=() wanted=()
    while read -r group package reason; do
        [[ " $* " == *" $group "* ]] && wanted+=("$package")
    done < <(grep -v '^#' "$root/scripts/packages.txt")

    if ! command -v dpkg-query >/dev/null; then
        say "not a Debian system, so nothing is installed here; needed are: ${wanted[*]}"
        return
    fi
    for package in "${wanted[@]}"; do
        [[ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" == installed ]] ||
            missing+=("$package")
    done
    ((${#missing[@]})) || return 0

    local sudo=()
    if ((EUID != 0)); then
        command -v sudo >/dev/null ||
            fail "could not install ${missing[*]}: run me as root once, or install sudo"
        sudo=(sudo)
    fi
    local apt=("${sudo[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq)
    local log policy=/usr/sbin/policy-rc.d own_policy='' status=0
    log=$(mktemp)
    say "installing ${missing[*]}"
    if [[ ! -e $policy ]]; then
        own_policy=yes
        printf '#!/bin/sh\nexit 101\n' | "${sudo[@]}" install -m 755 /dev/stdin "$policy"
    fi
    { "${apt[@]}" update && "${apt[@]}" install -y --no-install-recommends "${missing[@]}"; } \
        </dev/null >"$log" 2>&1 || status=$?
    [[ -z $own_policy ]] || "${sudo[@]}" rm -f "$policy"
    ((status == 0)) || fail "could not install ${missing[*]}" "$log"

    # Where there is no systemctl nothing would start them either.
    local unit
    for unit in $(dpkg -L "${missing[@]}" | sed -n 's|^/lib/systemd/system/\(.*\.service\)$|\1|p'); do
        ! command -v systemctl >/dev/null || "${sudo[@]}" systemctl disable "$unit" >"$log" 2>&1 ||
            fail "could not disable $unit" "$log"
    done
    rm -f "$log"
}

# build PRESET [TARGET...]: configures when that is due and builds the targets, or everything. The
# lock keeps a second ./run or ./test out of the folder until the first has built.
build() {
    local preset=$1 folder="$root/build/$1" options=() target lock
    local log="$folder/build.log" cache="$folder/CMakeCache.txt" ninja="$folder/build.ninja"
    shift
    mkdir -p "$folder"
    exec {lock}>"$folder/.lock"
    flock "$lock"
    cd "$root"
    : >"$log"

    # A tree that was moved or copied cannot use the cache that came along.
    if [[ -f $cache ]] && ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$cache"; then
        options=(--fresh)
        rm -f "$ninja"
    fi
    if [[ ! -f $ninja || CMakePresets.json -nt $ninja ]]; then
        say "configuring build/$preset"
        cmake --preset "$preset" "${options[@]}" >>"$log" 2>&1 ||
            fail "could not configure the build" "$log"
    fi

    # Worth a line only once something is really compiled.
    options=()
    for target in "$@"; do options+=(--target "$target"); done
    cmake --build --preset "$preset" "${options[@]}" 2>&1 | tee -a "$log" |
        { ! grep -qm1 ' Building ' || say "building build/$preset (minutes, the first time)"
          cat >/dev/null; } || fail "the build failed" "$log"

    cd "$OLDPWD"
    exec {lock}>&-
}

# run_tests PRESET [CTEST ARGUMENT...]: runs the tests of a build, prints what did not pass as it
# happens, and last the total. Every test has files and ports of its own, so they run side by side.
run_tests() {
    local preset=$1 status=0
    local log="$root/build/$preset/test.log"
    shift
    say "running the tests of build/$preset"
    cd "$root"
    ctest --preset "$preset" --output-on-failure -j "$(nproc)" "$@" >"$log" 2>&1 || status=$?
    cd "$OLDPWD"

    # What is left is the output of the tests that failed and the list of their names.
    ((status == 0)) || grep -vE '^ *Start +[0-9]+:| Passed +[0-9.]+ sec$|^$' "$log" || true
    local failed total skipped
    read -r failed total < <(sed -nE \
        's/.* ([0-9]+) tests? failed out of ([0-9]+)$/\1 \2/p' "$log") || fail "no test was run" "$log"
    skipped=$(grep -cE '\*\*\*Skipped' "$log" || true)
    total="$((total - failed - skipped)) passed, $failed failed, $skipped skipped"
    if ((status != 0)); then
        say "FAILED: $total; the whole output is in ${log#"$root/"}"
        exit 1
    fi
    say "$total ($(sed -nE 's/^Total Test time .*= *//p' "$log"))"
}
