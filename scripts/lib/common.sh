# Shared by the scripts: the project root and the Debian packages the build, tests and demo need.
# Sourced, not run.

ROOT="$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)"

# Everything a fresh Debian machine lacks for building, testing and running the demo.
VARIMO_PACKAGES=(
    cmake ninja-build g++ pkg-config
    qt6-base-dev qt6-serialport-dev libgl-dev
    libgtest-dev libgmock-dev libbenchmark-dev
    socat lrzsz xvfb xauth xdotool fonts-dejavu-core
    lintian help2man bash-completion dpkg-dev
)

# Installs the packages of the list that are missing (apt-get update first, only when needed).
ensure_packages() {
    local missing=() pkg
    for pkg in "${VARIMO_PACKAGES[@]}" "$@"; do
        if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed'; then
            missing+=("$pkg")
        fi
    done
    if [ ${#missing[@]} -eq 0 ]; then
        return 0
    fi
    local sudo=""
    if [ "$(id -u)" -ne 0 ]; then
        sudo="sudo"
    fi
    echo "Installing: ${missing[*]}"
    $sudo apt-get update -qq
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
}
