# shellcheck shell=bash disable=SC2034
# What the scripts share: finding the project, installing what is missing, building.

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

packages=(g++ cmake ninja-build ccache zlib1g-dev libmd-dev libtomlplusplus-dev libgtest-dev libbenchmark-dev libcli11-dev
          nlohmann-json3-dev)

# install PACKAGE...: installs those that are missing, as root or by sudo.
install() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
    done
    [ ${#missing[@]} -gt 0 ] || return 0
    local root=()
    [ "$(id -u)" -eq 0 ] || root=(sudo)
    echo "Installing ${missing[*]}"
    "${root[@]}" apt-get update -qq
    "${root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" </dev/null >/dev/null
}

# build PRESET [TARGET...]: in CI a warning of the release is an error; sanitizers make the compiler see what isn't there.
build() {
    local preset=$1
    shift
    local targets=() strict=()
    [ "$preset" != release ] || [ -z "${CI:-}" ] || strict=(-DCMAKE_COMPILE_WARNING_AS_ERROR=ON)
    [ $# -eq 0 ] || targets=(--target "$@")
    (cd "$project" && cmake --preset "$preset" "${strict[@]}" >/dev/null && cmake --build --preset "$preset" "${targets[@]}")
}
