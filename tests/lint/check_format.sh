#!/usr/bin/env bash
# Every C++ file of the project in the layout of .clang-format: lists the files clang-format
# would change and fails, or reports itself skipped (77) where clang-format is not installed.
# `make format` applies the layout.
set -uo pipefail
cd "$(dirname "$0")/../.."
command -v clang-format > /dev/null || { echo "clang-format is not installed"; exit 77; }
status=0
while IFS= read -r f; do
    if ! clang-format --dry-run --Werror "$f" > /dev/null 2>&1; then
        echo "not in the project's layout (make format): $f"
        status=1
    fi
done < <(git ls-files '*.cpp' '*.hpp' '*.h' '*.c' '*.cu' '*.cuh' 2> /dev/null || find src tests tools bench -name '*.[ch]pp' -o -name '*.cu' -o -name '*.cuh')
exit $status
