#!/usr/bin/env bash
# Installs the Debian packages that building, running and testing the launcher
# need, and only those that are missing, so a second run costs nothing.
set -euo pipefail

packages=(
    # Build
    cmake g++ make pkg-config
    qt6-base-dev qt6-base-dev-tools qt6-multimedia-dev qt6-svg-dev
    qt6-tools-dev qt6-tools-dev-tools qt6-l10n-tools
    libquazip1-qt6-dev libisal-dev libgl-dev libxcb1-dev zlib1g-dev
    libavformat-dev libavcodec-dev libswscale-dev libavutil-dev
    # Run: platform plugins, SVG icons, a font; GStreamer for Qt Multimedia builds
    qt6-qpa-plugins libqt6svg6 fonts-dejavu-core
    gstreamer1.0-plugins-base gstreamer1.0-plugins-good gstreamer1.0-libav
    # Tests and demo: a virtual X server, real input, a real web server
    xvfb xauth xdotool x11-utils imagemagick nginx-light curl openssl
    # The Windows build checked from here: mingw-w64 and Wine
    g++-mingw-w64-x86-64-posix libz-mingw-w64-dev wine wine64
)

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$package")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

echo "Installing: ${missing[*]}"
sudo=""
if [ "$(id -u)" -ne 0 ]; then
    sudo="sudo"
fi
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
