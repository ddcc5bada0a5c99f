#!/bin/sh
# Installs the Debian packages of a list that this machine lacks. Needs root or sudo only if any is missing. A second
# word on a line is a command that will do in place of the package.
set -eu

list=${1:?usage: install_packages.sh LIST}
missing=
while read -r package command; do
    [ -n "$package" ] || continue
    status=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
    [ "$status" = installed ] || { [ -n "$command" ] && command -v "$command" >/dev/null; } ||
        missing="$missing $package"
done <<LIST
$(sed 's/#.*//' "$list")
LIST
[ -n "$missing" ] || exit 0

echo "installing:$missing"
if [ "$(id -u)" -eq 0 ]; then
    as_root=
elif command -v sudo >/dev/null; then
    as_root=sudo
else
    echo "these packages are missing and this user may not install them:$missing" >&2
    exit 1
fi
export DEBIAN_FRONTEND=noninteractive
$as_root apt-get update -q
# shellcheck disable=SC2086  # a list of words
$as_root apt-get install -q -y --no-install-recommends $missing
