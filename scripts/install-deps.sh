#!/usr/bin/env bash
# Installs the Debian packages a task needs, and only those that are missing.
#   scripts/install-deps.sh [build] [test] [fuzz] [bench]     (default: build)
# Quiet and quick when everything is there; runs apt-get update once before installing.
set -euo pipefail

groups=("$@")
[ ${#groups[@]} -gt 0 ] || groups=(build)

packages=()
# unixODBC and Firebird's client with its embedded engine: the library links both, and the main job
# keeps its data in an embedded Firebird file.
database=(unixodbc-dev firebird-dev libfbclient2 firebird3.0-server-core firebird3.0-utils)
for group in "${groups[@]}"; do
    case "$group" in
    build) packages+=(cmake ninja-build g++ pkg-config libboost1.81-dev libssl-dev tzdata "${database[@]}") ;;
    test) packages+=(cmake ninja-build g++ pkg-config libboost1.81-dev libssl-dev openssl tzdata "${database[@]}" libgtest-dev libgmock-dev
                     libsqliteodbc odbc-postgresql postgresql ccache) ;;
    fuzz) packages+=(clang libclang-rt-14-dev) ;;
    bench) packages+=("${database[@]}" libsqlite3-dev libsqliteodbc libbenchmark-dev nlohmann-json3-dev rapidjson-dev
                      libsimdjson-dev libboost1.81-dev libboost-json1.81-dev libpoco-dev libspdlog-dev libhttp-parser-dev
                      wrk libcpp-httplib-dev libpugixml-dev) ;;
    *) echo "install-deps: unknown group '$group' (build, test, fuzz, bench)" >&2; exit 2 ;;
    esac
done

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$package")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

sudo=()
if [ "$(id -u)" -ne 0 ]; then
    command -v sudo >/dev/null || { echo "install-deps: need root or sudo to install: ${missing[*]}" >&2; exit 1; }
    sudo=(sudo)
fi
echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
"${sudo[@]}" apt-get update -qq
"${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
