# Sourced by the scripts: the Debian packages that each job needs, and functions that install them.

build_packages=(
    g++ cmake ninja-build pkg-config
    libboost-dev libcli11-dev libexpat1-dev libfmt-dev libgif-dev libicu-dev libisal-dev libpng-dev
    libseccomp-dev libsqlite3-dev libturbojpeg0-dev libxerces-c-dev nettle-dev nlohmann-json3-dev zlib1g-dev
)
# What uses installed man pages and completions.
installed_packages=(bash-completion fish groff-base zsh)
# What the Python package is built with.
python_packages=(pybind11-dev python3-dev)
# What its notebook needs.
notebook_packages=(python3-ipykernel python3-nbclient python3-nbformat python3-pandas)
test_packages=(
    "${build_packages[@]}" "${installed_packages[@]}" "${python_packages[@]}"
    libgtest-dev libgmock-dev libbenchmark-dev
    clang clang-14 clang-format-14 clang-tidy-14 clang-tools-14 libclang-rt-14-dev
    attr git iwyu libarchive-tools libxml2-utils mypy nodejs python3 python3-jsonschema strace unzip xz-utils zip
)
# Other programs that read and write zip files.
reader_packages=(
    busybox libarchive-dev libarchive-tools libarchive-zip-perl libminizip-dev libzip-dev
    default-jdk-headless golang-go node-jszip node-yauzl nodejs p7zip-full php-cli php-zip ruby ruby-zip
)

# need PACKAGE...: installs the missing packages, as root or through sudo.
need() {
    local missing=() package
    for package in "$@"; do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' ||
            missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    local as_root=()
    if [ "$(id -u)" -ne 0 ]; then as_root=(sudo); fi
    if ! command -v apt-get >/dev/null || ! { [ "$(id -u)" -eq 0 ] || command -v sudo >/dev/null; }; then
        echo "These packages (Debian 12 names) are missing; install them and run this again:" >&2
        printf '    %s\n' "${missing[@]}" >&2
        exit 1
    fi
    echo "Installing ${missing[*]}"
    "${as_root[@]}" apt-get update -qq
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
        apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

need_build_packages() { need "${build_packages[@]}"; }
need_test_packages() { need "${test_packages[@]}"; }
