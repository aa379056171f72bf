# shellcheck shell=bash
# What the scripts share: where things are, which packages they need, and how steps are run and reported.
# Sourced, with `set -euo pipefail` in effect.

VX_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# Jobs that run side by side: builds, test programs, clang-tidy.
VX_JOBS=${VX_JOBS:-$(nproc)}

vx_fail() {
    printf '%s: error: %s\n' "${0##*/}" "$*" >&2
    exit 1
}

# vx_packages GROUP...: the package names of those groups of packages.txt.
vx_packages() {
    awk -v groups=" $* " '
        { sub(/#.*/, "") }
        NF == 0 { next }
        /^\[/ { gsub(/[][ ]/, ""); wanted = index(groups, " " $0 " ") > 0; next }
        wanted { print $1 }' "$VX_ROOT/scripts/packages.txt"
}

# vx_install GROUP...: installs what is missing of those groups. Asks neither the network nor for rights when nothing is.
vx_install() {
    if ! command -v dpkg-query >/dev/null; then
        echo "${0##*/}: this is no Debian system, so no package is installed; scripts/packages.txt lists what is needed" >&2
        return 0
    fi
    local wanted installed missing as_root=() update=(apt-get update -q) install
    wanted=$(vx_packages "$@" | LC_ALL=C sort -u)
    # shellcheck disable=SC2016,SC2086 # dpkg-query expands the field names; package names hold no blanks.
    installed=$(dpkg-query -W -f '${db:Status-Status} ${Package}\n' $wanted 2>/dev/null |
        awk '$1 == "installed" { print $2 }' | LC_ALL=C sort -u) || true
    mapfile -t missing < <(LC_ALL=C comm -23 <(echo "$wanted") <(echo "$installed"))
    if [[ ${#missing[@]} -eq 0 || -z ${missing[0]} ]]; then
        return 0
    fi

    echo "${0##*/}: installing ${missing[*]}"
    if [[ $(id -u) -ne 0 ]]; then
        if ! command -v sudo >/dev/null; then
            vx_fail "packages are missing and neither root rights nor sudo are at hand; as root: apt-get install ${missing[*]}"
        fi
        as_root=(sudo)
        # Only a person at a terminal can be asked for a password.
        [[ -t 0 ]] || as_root=(sudo -n)
    fi
    as_root+=(env DEBIAN_FRONTEND=noninteractive)
    install=(apt-get install -q -y --no-install-recommends -o DPkg::Lock::Timeout=300 "${missing[@]}")
    # The package lists are fetched only when they do not know a package or name a version that is gone.
    if "${install[@]}" --simulate >/dev/null 2>&1 </dev/null && "${as_root[@]}" "${install[@]}" </dev/null; then
        return 0
    fi
    "${as_root[@]}" "${update[@]}" </dev/null || vx_fail "apt-get update failed, and these packages are missing: ${missing[*]}"
    "${as_root[@]}" "${install[@]}" </dev/null ||
        vx_fail "could not install ${missing[*]} (the packages are those of Debian 12; see the messages above)"
}

# vx_build PRESET [-DNAME=VALUE...] [-- TARGET...]: configures and builds into build/PRESET.
vx_build() {
    local preset=$1 settings=()
    shift
    while [[ $# -gt 0 && $1 != -- ]]; do
        settings+=("$1")
        shift
    done
    [[ $# -eq 0 ]] || shift
    (cd "$VX_ROOT" && cmake --preset "$preset" --log-level=WARNING "${settings[@]}" >/dev/null)
    cmake --build "$VX_ROOT/build/$preset" --parallel "$VX_JOBS" ${1+--target "$@"}
}

# vx_step NAME COMMAND...: runs a step and says how it ended and how long it took. A step that fails does not stop the
# ones behind it; vx_finish tells.
VX_STEPS=()
VX_FAILED=()
vx_step() {
    local name=$1 start=$SECONDS status
    shift
    printf '\n==> %s\n' "$name"
    set +e
    (
        set -e
        "$@"
    )
    status=$?
    set -e
    if [[ $status -eq 0 ]]; then
        VX_STEPS+=("$(printf '%-12s ok      %5d s' "$name" $((SECONDS - start)))")
    else
        VX_STEPS+=("$(printf '%-12s FAILED  %5d s' "$name" $((SECONDS - start)))")
        VX_FAILED+=("$name")
    fi
    printf '==> %s\n' "${VX_STEPS[-1]}"
}

# vx_finish: prints all steps and ends the script, with status 1 when one of them failed.
vx_finish() {
    printf '\n==> %s: summary\n' "${0##*/}"
    printf '    %s\n' "${VX_STEPS[@]}"
    if [[ ${#VX_FAILED[@]} -gt 0 ]]; then
        vx_fail "failed: ${VX_FAILED[*]}"
    fi
    exit 0
}
