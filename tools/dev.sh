#!/usr/bin/env bash
# One entry for a fresh Debian 12 machine: installs what is missing, builds,
# then runs the program, the tests, the sanitizer tests, the fuzzers or the
# benchmarks.
#
#   tools/dev.sh run [ARGS]   the program on the demo folder ./kestrava-demo
#   tools/dev.sh test         the whole test suite
#   tools/dev.sh asan         the test suite under AddressSanitizer + UBSan
#   tools/dev.sh coverage     the test suite's line and branch coverage of the
#                             program, with a report in build-cov/coverage/
#   tools/dev.sh fuzz [SECS]  each fuzzing harness for SECS seconds (30), longer
#                             when that is fewer than 100 000 inputs
#   tools/dev.sh bench        the benchmarks
#   tools/dev.sh kernel       the kernel device tests in a virtual machine
#   tools/dev.sh shots [DIR]  screenshots of the desktop under Xvfb
#   tools/dev.sh deb          the Debian package, in build-deb/
#   tools/dev.sh package-check  the package checked, installed, run and removed
set -euo pipefail
cd "$(dirname "$0")/.."

# What the program needs to build and run.
PACKAGES=(
    cmake ninja-build g++ pkg-config ccache
    qt6-base-dev qt6-qpa-plugins zlib1g-dev libzip-dev libcurl4-openssl-dev libminiupnpc-dev libv4l-dev libmosquitto-dev
    fonts-noto-cjk
)

# What the tests, the sanitizer and fuzzing builds and the benchmarks add.
TEST_PACKAGES=(
    libgtest-dev libgmock-dev libbenchmark-dev
    chromium w3m zip unzip
    xvfb xdotool imagemagick
    clang libclang-rt-14-dev
    python3-aiosmtpd dovecot-pop3d
    miniupnpd miniupnpd-nftables nftables iproute2
    python3-dbusmock dbus
    lirc lirc-compat-remotes
    mosquitto mosquitto-clients
    pebble openssl curl wrk nginx
)

# What the coverage figures add.
COVERAGE_PACKAGES=(
    gcovr
)

# What the kernel device tests add: the virtual machine, Debian's kernel to boot
# in it and the tools the tests drive its devices with.
KERNEL_PACKAGES=(
    qemu-system-x86 linux-image-amd64 busybox-static cpio v4l-utils ir-keytable
)

# What building and checking the Debian package adds.
PACKAGE_TOOLS=(
    dpkg-dev file lintian desktop-file-utils appstream man-db curl
)

# With "test", the test tools and node too; with "coverage", those and gcovr;
# with "kernel", the test tools and the virtual machine's.
install_missing() {
    local wanted=("${PACKAGES[@]}") missing=() p
    [ "${1:-}" = test ] && wanted+=("${TEST_PACKAGES[@]}")
    [ "${1:-}" = coverage ] && wanted+=("${TEST_PACKAGES[@]}" "${COVERAGE_PACKAGES[@]}")
    [ "${1:-}" = kernel ] && wanted+=("${TEST_PACKAGES[@]}" "${KERNEL_PACKAGES[@]}")
    [ "${1:-}" = package ] && wanted+=("${PACKAGE_TOOLS[@]}")
    for p in "${wanted[@]}"; do
        dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" ||
            missing+=("$p")
    done
    if [ "${1:-}" = test ] || [ "${1:-}" = coverage ]; then
        command -v node >/dev/null && command -v npm >/dev/null || missing+=(nodejs npm)
    fi
    [ ${#missing[@]} -eq 0 ] && return
    local sudo=()
    [ "$(id -u)" -ne 0 ] && sudo=(sudo)
    echo "Installing: ${missing[*]}"
    "${sudo[@]}" apt-get update -qq
    "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}"
}

# Playwright and axe-core for the browser tests, pinned by tests/e2e/package-lock.json.
e2e_modules() {
    [ -d tests/e2e/node_modules/playwright-core ] && [ -d tests/e2e/node_modules/axe-core ] ||
        npm ci --prefix tests/e2e --no-audit --no-fund --loglevel=error
}

build() {
    local dir=$1
    shift
    cmake -S . -B "$dir" -G Ninja -Wno-dev -DCMAKE_CXX_COMPILER_LAUNCHER=ccache \
        -DKESTRAVA_WERROR=ON "$@" >/dev/null
    cmake --build "$dir"
}

# Runs every harness of tests/fuzz on a scratch copy of its corpus, so the
# inputs it finds stay out of the tree. Each runs for the seconds given and,
# when that gave fewer than FUZZ_MIN_RUNS inputs, on until it has them, for at
# most FUZZ_EXTRA_SECS more. Fails when one of them crashes.
FUZZ_MIN_RUNS=100000
FUZZ_EXTRA_SECS=60
# One run of harness $1 on scratch folder $2 with the options that follow;
# the log collects every run.
fuzz_once() {
    local name=$1 dir=$2
    shift 2
    build-fuzz/tests/fuzz/"$name" "$@" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
        -artifact_prefix="$dir/crashes/" "$dir/corpus" >>"$dir/log" 2>&1
}
# Inputs run so far, over every run in log $1.
fuzz_runs() {
    local n total=0
    for n in $(sed -n 's/^stat::number_of_executed_units: *//p' "$1"); do
        total=$((total + n))
    done
    echo "$total"
}
run_fuzzers() {
    local seconds=$1 scratch h name dir last runs took start failed=()
    scratch=$(mktemp -d)
    for h in tests/fuzz/*_fuzz.cpp; do
        name=$(basename "$h" .cpp)
        dir=$scratch/$name
        mkdir -p "$dir/corpus" "$dir/crashes"
        cp tests/fuzz/corpus/"$name"/* "$dir/corpus/" 2>/dev/null || true
        start=$SECONDS
        if ! fuzz_once "$name" "$dir" -max_total_time="$seconds"; then
            failed+=("$name")
        elif [ "$(fuzz_runs "$dir/log")" -lt "$FUZZ_MIN_RUNS" ] &&
            ! fuzz_once "$name" "$dir" -runs=$((FUZZ_MIN_RUNS - $(fuzz_runs "$dir/log"))) \
                -max_total_time="$FUZZ_EXTRA_SECS"; then
            failed+=("$name")
        fi
        runs=$(fuzz_runs "$dir/log")
        took=$((SECONDS > start ? SECONDS - start : 1))
        last=$(grep -E '^#[0-9]+.*cov:' "$dir/log" | tail -n 1 || true)
        printf '%-20s exec/s %-7s runs %-9s cov %-6s ft %-6s %s\n' "$name" \
            "$((runs / took))" "$runs" \
            "$(grep -Eo 'cov: [0-9]+' <<<"$last" | cut -d' ' -f2)" \
            "$(grep -Eo 'ft: [0-9]+' <<<"$last" | cut -d' ' -f2)" \
            "$([[ " ${failed[*]-} " == *" $name "* ]] && echo CRASHED || echo ok)"
    done
    if [ ${#failed[@]} -gt 0 ]; then
        mkdir -p build-fuzz/crashes
        for name in "${failed[@]}"; do
            grep -E 'ERROR|SUMMARY|runtime error' "$scratch/$name/log" | head -n 5 || true
            cp "$scratch/$name"/crashes/* build-fuzz/crashes/ 2>/dev/null || true
        done
        echo "crashing inputs: build-fuzz/crashes/ (add each to tests/fuzz/corpus/<harness>/)"
        rm -rf "$scratch"
        return 1
    fi
    rm -rf "$scratch"
}

cmd=${1:-}
[ $# -gt 0 ] && shift
case "$cmd" in
run)
    install_missing
    build build -DBUILD_TESTING=OFF -DKESTRAVA_BENCH=OFF
    exec build/app/kestrava --demo "$@"
    ;;
test)
    install_missing test
    e2e_modules
    build build -DBUILD_TESTING=ON
    ctest --test-dir build --output-on-failure -j "$(nproc)"
    ;;
asan)
    install_missing test
    e2e_modules
    build build-asan -DKESTRAVA_SANITIZE=ON -DKESTRAVA_BENCH=OFF -DCMAKE_BUILD_TYPE=Debug
    # LeakSanitizer's own tracer now and then dies at exit on a loaded machine
    # ("Tracer caught signal 11") after the test passed: such a test gets a
    # second run. A real leak or sanitizer report fails both.
    ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1 \
        ctest --test-dir build-asan --output-on-failure -j "$(nproc)" --repeat until-pass:2
    ;;
coverage)
    install_missing coverage
    e2e_modules
    build build-cov -DCMAKE_BUILD_TYPE=Debug -DKESTRAVA_BENCH=OFF \
        -DCMAKE_CXX_FLAGS=--coverage -DCMAKE_EXE_LINKER_FLAGS=--coverage
    # Counts of an earlier run would add to this one's.
    find build-cov -name '*.gcda' -delete
    ctest --test-dir build-cov --output-on-failure -j "$(nproc)" || failed=1
    # The program's own sources only: not the tests, the benchmarks, nor what
    # moc and rcc generate into the build folders. Branches that only a thrown
    # exception or the compiler's own checks take are left out of the count.
    mkdir -p build-cov/coverage
    gcovr --root . -j "$(nproc)" \
        --exclude 'tests/' --exclude 'bench/' --exclude 'build[^/]*/' \
        --exclude-throw-branches --exclude-unreachable-branches \
        --txt build-cov/coverage/files.txt \
        --html-details build-cov/coverage/index.html --print-summary build-cov
    echo "per file: build-cov/coverage/files.txt, build-cov/coverage/index.html"
    exit "${failed:-0}"
    ;;
fuzz)
    install_missing test
    CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -Wno-dev \
        -DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DKESTRAVA_FUZZ=ON -DBUILD_TESTING=OFF \
        -DKESTRAVA_BENCH=OFF -DKESTRAVA_WERROR=ON >/dev/null
    cmake --build build-fuzz --target kestrava_fuzzers
    run_fuzzers "${1:-30}"
    ;;
bench)
    install_missing test
    build build -DKESTRAVA_BENCH=ON
    build/bench/kestrava_bench "$@"
    bench/http/run.sh build
    bench/https/run.sh build
    bench/mqtt/run.sh build
    bench/import/run.sh build
    ;;
kernel)
    install_missing kernel
    build build -DBUILD_TESTING=ON
    tests/kernel/lane.sh build
    ;;
shots)
    install_missing test
    build build
    exec tools/screenshots.sh "$@"
    ;;
deb)
    install_missing package
    build build-deb -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
        -DBUILD_TESTING=OFF -DKESTRAVA_BENCH=OFF
    (cd build-deb && cpack -G DEB >/dev/null)
    ls build-deb/kestrava_*.deb
    ;;
package-check)
    "$0" deb
    exec tools/check-package.sh
    ;;
*)
    sed -n '2,17p' "$0" | sed 's/^# \{0,1\}//'
    exit 2
    ;;
esac
