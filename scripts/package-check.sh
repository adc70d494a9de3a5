#!/usr/bin/env bash
# Installs the built Debian package as a user would, checks that its menu entry starts the
# installed program on the installed demo sound, and removes the package again. Needs root and
# Debian's package sources (CI). Usage: package-check.sh PACKAGE.deb
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
deb=$(realpath "$1")
if dpkg -s quorval >/dev/null 2>&1; then
    echo "package-check: a quorval package is installed already; leaving it alone" >&2
    exit 1
fi
trap 'apt-get remove -y -qq quorval >/dev/null 2>&1 || true' EXIT
apt-get install -y -qq "$deb"

desktop=/usr/share/applications/org.quorval.Quorval.desktop
desktop-file-validate "$desktop"
# The menu entry's command is the installed program, found on the path as the desktop finds it.
command=$(sed -n 's/^Exec=\([^ ]*\).*/\1/p' "$desktop")
program=$(command -v "$command")
[ "$program" = /usr/bin/quorval ] || { echo "menu entry runs $program" >&2; exit 1; }
icon=$(sed -n 's/^Icon=//p' "$desktop")
for wanted in "scalable/apps/$icon.svg" "48x48/apps/$icon.png"; do
    [ -s "/usr/share/icons/hicolor/$wanted" ] || { echo "no icon $wanted" >&2; exit 1; }
done
appstreamcli validate --no-net /usr/share/metainfo/org.quorval.Quorval.metainfo.xml
ls /usr/share/man/man1/quorval-cli.1* >/dev/null

demo=/usr/share/quorval/demo.wav
quorval-cli --version
quorval-cli info "$demo" >/dev/null
# Nothing of the build tree is needed: run from elsewhere, on the installed files only.
out=$(mktemp -d)
(cd "$out" && bash "$root/scripts/sound-server.sh" bash "$root/app/tests/smoke.sh" \
    "$program" "$demo" "$out/smoke")
rm -rf "$out"

apt-get remove -y -qq quorval
trap - EXIT
if dpkg -s quorval >/dev/null 2>&1 || [ -e /usr/bin/quorval ]; then
    echo "package-check: the package did not go away" >&2
    exit 1
fi
echo "package-check: installed, started from its menu entry and removed"
