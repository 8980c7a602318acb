#!/usr/bin/env bash
# readme_test.sh README EXAMPLE: the one contains the other, to the letter, as a block of its own.
set -euo pipefail

readme=$(<"$1")
block=$'```cpp\n'$(<"$2")$'\n```\n'
[[ $readme == *"$block"* ]] || { echo "$1 does not show ${2##*/} as it stands"; exit 1; }
