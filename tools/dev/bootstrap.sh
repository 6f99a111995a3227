# SPDX-License-Identifier: MIT
# shellcheck shell=sh disable=SC2034,SC2154 # its users set $root and read the needs
#
# Sourced by ./run and ./test, with $root set to the top folder: finds out what the machine
# lacks, installs it where that is possible, configures and builds. All messages go to standard
# error.

# One line a need: how to tell that it is there, and the package that brings it.
RUN_NEEDS='
command:gcc gcc
command:g++ g++
header:stdlib.h libc6-dev
command:cmake cmake
command:ninja ninja-build
'

TEST_NEEDS="$RUN_NEEDS"'
command:git git
command:clang clang
command:clang++ clang
command:clang-format clang-format
command:clang-tidy clang-tidy
command:groff groff-base
command:gzip gzip
command:lowdown lowdown
command:parallel parallel
command:python3 python3
command:readelf binutils
command:rsync rsync
command:shellcheck shellcheck
command:ssh openssh-client
file:/usr/sbin/sshd openssh-server
command:strace strace
command:valgrind valgrind
command:xmllint libxml2-utils
header:gtest/gtest.h libgtest-dev
header:gmock/gmock.h libgmock-dev
header:benchmark/benchmark.h libbenchmark-dev
header:CLI/CLI.hpp libcli11-dev
header:nlohmann/json.hpp nlohmann-json3-dev
'

# Some releases have it in the package of clang itself, and none of this name: to be asked for
# when clang is there.
SANITIZER_NEEDS='
clang:-fsanitize=address,undefined libclang-rt-dev
'

say() {
    printf '%s: %s\n' "${0##*/}" "$*" >&2
}

die() {
    say "error: $*"
    exit 1
}

have() {
    case $1 in
    command:*)
        command -v "${1#command:}" >/dev/null 2>&1
        ;;
    file:*)
        test -e "${1#file:}"
        ;;
    header:*)
        test -e "/usr/include/${1#header:}" || test -e "/usr/local/include/${1#header:}"
        ;;
    clang:*)
        echo 'int main(void) { return 0; }' |
            clang "${1#clang:}" -x c -o /dev/null - >/dev/null 2>&1
        ;;
    esac
}

# missing_packages <needs>: the packages of all needs that are not met, each once.
missing_packages() {
    echo "$1" | while read -r need package; do
        if test -n "$need" && ! have "$need"; then
            echo "$package"
        fi
    done | sort -u | paste -s -d ' '
}

as_root() {
    if test "$(id -u)" -eq 0; then
        "$@"
    elif test -t 0; then
        sudo "$@"
    else
        sudo -n "$@"
    fi
}

# Its many lines go to a file.
apt_get() {
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -q -y \
        -o DPkg::Lock::Timeout=300 -o Dpkg::Use-Pty=0 "$@" </dev/null >>"$apt_log" 2>&1
}

apt_knows_all() {
    apt-get -qq --simulate --no-install-recommends install "$@" >/dev/null 2>&1
}

# A base system of Ubuntu may know its component "main" only.
add_universe() {
    grep -qs '^ID=ubuntu' /etc/os-release || return 1
    sources=/etc/apt/sources.list
    universe=$(sed -n 's/^\(deb .*\) main *$/\1 universe/p' "$sources" 2>/dev/null)
    test -n "$universe" || return 1
    say "adding Ubuntu's universe in $sources.d/universe.list"
    echo "$universe" | as_root tee "$sources.d/universe.list" >/dev/null
}

apt_install() {
    if apt_knows_all "$@" && apt_get install --no-install-recommends "$@"; then
        return 0
    fi
    say "updating the package lists"
    apt_get update || return 1
    if ! apt_knows_all "$@" && add_universe; then
        apt_get update || return 1
    fi
    apt_get install --no-install-recommends "$@"
}

# first_complaint <log of apt-get>
first_complaint() {
    grep -m 1 -E '^(E|Err|W):' "$1" || tail -n 1 "$1"
}

# A server that came for the tests, which start their own, is not to answer the network.
close_doors() {
    case " $packages " in
    *' openssh-server '*)
        if test -d /run/systemd/system; then
            as_root systemctl --quiet disable --now ssh.service ||
                say "ssh.service could not be stopped"
        fi
        ;;
    esac
}

# install_needs <needs>: afterwards all of them are met, or the script has ended.
install_needs() {
    packages=$(missing_packages "$1")
    test -n "$packages" || return 0

    if ! command -v apt-get >/dev/null 2>&1; then
        die "these Debian packages, or what they are called here, are missing: $packages"
    fi
    if test "$(id -u)" -ne 0 && ! command -v sudo >/dev/null 2>&1; then
        die "missing packages; as root: apt-get install $packages"
    fi

    mkdir -p "$root/build"
    apt_log="$root/build/apt.log"
    : >"$apt_log"
    say "installing with apt-get, whose output goes to $apt_log: $packages"
    # shellcheck disable=SC2086 # a list of names
    apt_install $packages || die "apt-get could not install: $packages
    $(first_complaint "$apt_log")
    Is there a network? All that apt-get said stands in $apt_log"
    close_doors

    packages=$(missing_packages "$1")
    test -z "$packages" || die "still missing after the installation: $packages"
}

# quietly <log file> <command...>: its output is shown only when it fails.
quietly() {
    log=$1
    shift
    mkdir -p "${log%/*}"
    "$@" >"$log" 2>&1 </dev/null && return 0
    cat "$log" >&2
    return 1
}

# configure <preset> [cmake argument...]
configure() {
    preset=$1
    shift
    cache="$root/build/$preset/CMakeCache.txt"
    # A build folder that was copied or moved names another source folder.
    if test -e "$cache" && ! grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$root" "$cache"; then
        rm -rf "$cache" "$root/build/$preset/CMakeFiles"
    fi
    (cd "$root" && quietly "$root/build/$preset/configure.log" cmake --preset "$preset" "$@")
}

# show_steps <folder> <log>: reads what ninja writes. Of its steps it shows how many are done, on a
# terminal in one line that changes, else at every tenth of them; all other lines go to the log.
show_steps() {
    tenth=0
    while IFS= read -r line; do
        case $line in
        '['[0-9]*/[0-9]*']'*) ;;
        *)
            printf '%s\n' "$line" >>"$2"
            continue
            ;;
        esac
        steps=${line#'['}
        all=${steps#*/}
        all=${all%%']'*}
        steps=${steps%%/*}
        # Looking for new files takes a step or two, too.
        test "$all" -gt 2 || continue
        if test -t 2; then
            printf '\r%s: building %s: %d of %d steps\033[K' "${0##*/}" "$1" "$steps" "$all" >&2
            test "$steps" -lt "$all" || echo >&2
        elif test $((steps * 10 / all)) -gt "$tenth"; then
            tenth=$((steps * 10 / all))
            say "building $1: $steps of $all steps"
        fi
    done
}

# build <preset> [cmake --build argument...]
build() {
    preset=$1
    shift
    log="$root/build/$preset/build.log"
    : >"$log"
    # The status of what stands left of a pipe comes by a descriptor of its own.
    status=$({ {
        result=0
        (cd "$root" && cmake --build --preset "$preset" "$@" 2>&1 </dev/null) || result=$?
        echo "$result" >&3
    } | show_steps "build/$preset" "$log" >&2; } 3>&1)
    test "$status" -eq 0 || cat "$log" >&2
    return "$status"
}
