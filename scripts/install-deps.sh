#!/usr/bin/env bash
# Installs every Debian 12 package Tamvex needs to build, run and test.
set -euo pipefail
SUDO=""
if [ "$(id -u)" -ne 0 ]; then SUDO="sudo"; fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update
$SUDO apt-get install -y --no-install-recommends \
  cmake ninja-build pkg-config g++ git ca-certificates python3 \
  qt6-base-dev qt6-declarative-dev qt6-multimedia-dev qt6-httpserver-dev qt6-svg-dev \
  qt6-tools-dev qcoro-qt6-dev \
  qml6-module-qtquick qml6-module-qtquick-window qml6-module-qtquick-controls \
  qml6-module-qtquick-templates qml6-module-qtquick-layouts qml6-module-qtquick-shapes \
  qml6-module-qtqml qml6-module-qtqml-workerscript qml6-module-qtmultimedia \
  libavformat-dev libavcodec-dev libswresample-dev libavutil-dev \
  libsqlite3-dev libevdev-dev libx11-dev libxtst-dev libxi-dev \
  libbenchmark-dev \
  xvfb xauth x11-utils x11-xkb-utils dbus-daemon dbus-x11 pulseaudio pulseaudio-utils ffmpeg sqlite3 sox locales \
  dpkg-dev file desktop-file-utils appstream \
  kwin-wayland xdg-desktop-portal xdg-desktop-portal-kde qt6-wayland qtwayland5 python3-dbus python3-gi
# The tests run in our users' locale.
if ! locale -a | grep -qi '^ru_RU\.utf-\?8$'; then
  echo 'ru_RU.UTF-8 UTF-8' | $SUDO tee -a /etc/locale.gen >/dev/null
  $SUDO locale-gen
fi
