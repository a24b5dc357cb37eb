#!/usr/bin/env bash
# Installs what building (and, with --tests, testing) needs on a Debian machine.
# Does nothing when everything is present; installs through apt-get only as root.
set -euo pipefail

want_tests=0
[[ "${1:-}" == "--tests" ]] && want_tests=1

missing=()
command -v cmake >/dev/null 2>&1 || missing+=(cmake)
command -v g++ >/dev/null 2>&1 || missing+=(g++)
command -v make >/dev/null 2>&1 || missing+=(make)
if (( want_tests )); then
    [[ -f /usr/include/gtest/gtest.h ]] || missing+=(libgtest-dev)
    # Archives for the zip reader's tests are made by python3. The end-to-end tests drive
    # the clients visitors use: curl, wget and rclone's http backend.
    command -v python3 >/dev/null 2>&1 || missing+=(python3)
    command -v curl >/dev/null 2>&1 || missing+=(curl)
    command -v wget >/dev/null 2>&1 || missing+=(wget)
    command -v rclone >/dev/null 2>&1 || missing+=(rclone)
    # Zip downloads are opened by the unpackers visitors use.
    command -v unzip >/dev/null 2>&1 || missing+=(unzip)
    command -v bsdtar >/dev/null 2>&1 || missing+=(libarchive-tools)
    # The QR codes the console shows are read back as a phone would, by zbar's reader.
    command -v zbarimg >/dev/null 2>&1 || missing+=(zbar-tools)
    # The browser test drives Debian's Chromium with npm's playwright-core; no browser is
    # ever downloaded by npm.
    [[ -x /usr/bin/chromium ]] || missing+=(chromium)
    # The parsers' fuzzing harnesses: clang with libFuzzer and the sanitizers' runtimes, and
    # zlib, the reference the inflater is checked against (the program never links it).
    command -v clang++ >/dev/null 2>&1 || missing+=(clang)
    compgen -G "/usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-$(uname -m).a" \
        >/dev/null || missing+=(libclang-rt-dev)
    [[ -f /usr/include/zlib.h ]] || missing+=(zlib1g-dev)
    command -v node >/dev/null 2>&1 || missing+=(nodejs)
    command -v npm >/dev/null 2>&1 || missing+=(npm)
fi

if (( ${#missing[@]} > 0 )); then
    if [[ "$(id -u)" != 0 ]]; then
        echo "Missing packages: ${missing[*]}" >&2
        echo "Install them with: sudo apt-get install ${missing[*]}" >&2
        exit 1
    fi
    echo "Installing: ${missing[*]}"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -q
    apt-get install -y -q --no-install-recommends "${missing[@]}"
fi

if (( want_tests )); then
    browser_tests="$(dirname "$0")/../tests/browser"
    if [[ ! -f "$browser_tests/node_modules/playwright-core/package.json" ||
          ! -f "$browser_tests/node_modules/tus-js-client/package.json" ]]; then
        echo "Installing playwright-core and tus-js-client for the browser tests"
        npm ci --prefix "$browser_tests" --no-audit --no-fund
    fi
fi
