# Shared by scripts/run.sh and scripts/test.sh: installs what is missing and builds.
set -euo pipefail

TOVRIN_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

# Everything the program needs to build, run and be tested, as Debian 12 packages.
TOVRIN_PACKAGES=(
    cmake ninja-build g++ pkg-config python3 file
    qt6-base-dev qt6-svg-dev qt6-qpa-plugins libqt6svg6
    libplist-dev nlohmann-json3-dev libicu-dev libavahi-client-dev libimobiledevice-dev libusbmuxd-dev
    libsqlite3-dev
    libgtest-dev libgmock-dev libbenchmark-dev valgrind
    libimobiledevice-utils usbmuxd bootstrap-icons fonts-dejavu-core fonts-noto-core fonts-cantarell
    libxcb1-dev xvfb xauth x11-utils
    x11-xserver-utils openbox xdotool dbus-daemon libglib2.0-bin xserver-xephyr
    avahi-daemon avahi-utils dbus iproute2
)

say() { printf '\033[1m==> %s\033[0m\n' "$*"; }

as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    else
        sudo "$@"
    fi
}

# Installs the packages of TOVRIN_PACKAGES (and any given as arguments) that are missing.
install_packages() {
    install_missing "" "${TOVRIN_PACKAGES[@]}" "$@"
}

# Installs the given packages that are missing, without what they only recommend: for the
# desktops the tests run under (mutter alone recommends a good part of GNOME).
install_packages_alone() {
    install_missing --no-install-recommends "$@"
}

# Installs the packages after the first argument (apt-get's option, or "") that are missing.
install_missing() {
    local option=$1 missing=() package
    shift
    for package in "$@"; do
        if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
            missing+=("$package")
        fi
    done
    if [ ${#missing[@]} -eq 0 ]; then
        say "All $# Debian packages are installed"
        return
    fi
    say "Installing ${#missing[@]} missing Debian packages: ${missing[*]}"
    # Waits for another package manager that holds the lock rather than failing at once. The
    # package lists are read once a run.
    if [ -z "${lists_updated:-}" ]; then
        as_root apt-get -o DPkg::Lock::Timeout=600 update -qq
        lists_updated=1
    fi
    as_root env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 install -y -qq \
        ${option:+"$option"} "${missing[@]}" >/dev/null
}

# Configures (once) and builds one preset: default, asan or tsan; with target names after the
# preset, only those targets (and what they need).
build_preset() {
    local preset=$1
    shift
    local targets=()
    local target
    for target in "$@"; do
        targets+=(--target "$target")
    done
    local dir="$TOVRIN_ROOT/build"
    [ "$preset" = default ] || dir="$TOVRIN_ROOT/build-$preset"
    say "Building ($preset) in ${dir#"$TOVRIN_ROOT"/}"
    if [ ! -f "$dir/build.ninja" ]; then
        (cd "$TOVRIN_ROOT" && cmake --preset "$preset" >/dev/null)
    fi
    cmake --build "$dir" --parallel "$(nproc)" "${targets[@]}"
}
