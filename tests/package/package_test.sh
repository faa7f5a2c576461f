#!/usr/bin/env bash
# Builds the Debian package from this build folder and checks what a user installs: the
# files in their places, a valid desktop entry and metainfo, and, where asked (CI, as root),
# the package installed for real with `tamvex --version` run from /usr/bin.
set -euo pipefail
build_dir=$1
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
cd "$build_dir"
cpack -G DEB -B "$out" >/dev/null
deb=$(ls "$out"/tamvex_*_amd64.deb)
echo "package: $(basename "$deb")"

contents=$(dpkg-deb -c "$deb")
for path in ./usr/bin/tamvex ./usr/bin/tamvex-devserver ./usr/share/applications/tamvex.desktop \
    ./usr/share/icons/hicolor/scalable/apps/tamvex.svg ./usr/share/metainfo/org.tamvex.Tamvex.metainfo.xml \
    ./usr/lib/udev/rules.d/60-tamvex-uinput.rules ./usr/lib/modules-load.d/tamvex-uinput.conf; do
    grep -q " $path\$" <<<"$contents" || { echo "missing from the package: $path"; exit 1; }
done
depends=$(dpkg-deb -f "$deb" Depends)
for dep in libqt6core6 libsqlite3-0 libavformat59 qml6-module-qtquick-controls; do
    grep -q "$dep" <<<"$depends" || { echo "Depends lacks $dep: $depends"; exit 1; }
done

unpacked="$out/root"
dpkg-deb -x "$deb" "$unpacked"
desktop-file-validate "$unpacked/usr/share/applications/tamvex.desktop"
grep -q '^MimeType=x-scheme-handler/tamvex;' "$unpacked/usr/share/applications/tamvex.desktop"
appstreamcli validate --no-net "$unpacked/usr/share/metainfo/org.tamvex.Tamvex.metainfo.xml"

if [ "${CI:-}" = "true" ] || [ "${TAMVEX_INSTALL_PACKAGE:-0}" = "1" ]; then
    if [ "$(id -u)" -ne 0 ]; then
        echo "installing the package needs root"; exit 1
    fi
    DEBIAN_FRONTEND=noninteractive apt-get install -y "$deb" >/dev/null
    [ "$(command -v tamvex)" = /usr/bin/tamvex ] || { echo "tamvex is not /usr/bin/tamvex"; exit 1; }
    version=$(/usr/bin/tamvex --version)
    echo "installed: $version"
    grep -q "^tamvex $(dpkg-deb -f "$deb" Version | cut -d- -f1) " <<<"$version"
    # What the desktop entry starts is the installed program.
    exec_line=$(grep '^Exec=' /usr/share/applications/tamvex.desktop)
    [ "$exec_line" = "Exec=tamvex %u" ]
    /usr/bin/tamvex --help | grep -q 'tamvex transcribe'
else
    echo "not installed (set TAMVEX_INSTALL_PACKAGE=1, as root, to install it for real)"
fi
echo "package checks passed"
