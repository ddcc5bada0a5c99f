#!/bin/sh
# Builds the page: build/page/tuning.html. Node's packages come by the lock file.
set -eu
cd "$(dirname "$0")"

# Debian's Emscripten takes modules of Debian's Node.js, which another Node.js does not find by itself.
[ ! -d /usr/share/nodejs ] || export NODE_PATH=/usr/share/nodejs
(cd .. && emcmake cmake --preset page && cmake --build --preset page)

[ package-lock.json -ot node_modules/.package-lock.json ] || npm ci --no-audit --no-fund
node build.mjs
