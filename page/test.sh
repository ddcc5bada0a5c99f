#!/bin/sh
# Tests the page that build.sh made: the types, the model under Node.js, the page in the browser. The programs and the
# library to compare with are in build/release.
set -eu
cd "$(dirname "$0")/.."
export CMODEL_BUILD="$PWD/build/release"
export CMODEL_PAGE="$PWD/build/page/tuning.html"
export CMODEL_BROWSER="${CMODEL_BROWSER:-/usr/bin/chromium}"

(cd page && node_modules/.bin/tsc --noEmit && node_modules/.bin/prettier --check --log-level warn src test build.mjs)
tests=page/node_modules/.tests
for name in model page; do
    node page/build.mjs --for-tests "page/test/${name}_test.ts" "$tests/${name}_test.mjs"
    node --test "$tests/${name}_test.mjs"
done
