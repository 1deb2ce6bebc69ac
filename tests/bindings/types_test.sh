#!/bin/sh
# types_test.sh SOURCE NODE_MODULES: the types of the Python package are right on both systems. Those of the
# Node package fit a program that uses them as they are meant, and reject others; they declare what the
# package exports.
set -eu
export LC_ALL=C
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
for platform in linux win32; do
  (cd "$1/bindings/python" && mypy --strict --no-warn-return-any --platform $platform --python-version 3.9 \
    --cache-dir "$work/mypy" qzhidapi)
done
mkdir "$work/node_modules"
ln -s "$1/bindings/node" "$work/node_modules/qzhidapi"
cp "$1/tests/bindings/types_test.ts" "$work"
cd "$work"
node "$2/typescript/lib/tsc.js" --noEmit --strict --noUnusedLocals --target es2022 --module node16 types_test.ts
NODE_PATH=$2 node -e 'console.log(Object.keys(require("qzhidapi")).sort().join("\n"))' > exported
sed -n 's/^export \(class\|function\) \([A-Za-z0-9]*\).*/\2/p' node_modules/qzhidapi/index.d.ts | sort > declared
diff declared exported
