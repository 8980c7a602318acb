#!/usr/bin/env bash
# lint_test.sh FOLDER: mandoc has nothing to say against the pages in it.
set -euo pipefail

command -v mandoc >/dev/null || { echo "Skipped: mandoc is missing (Debian: mandoc)."; exit 77; }
mandoc -T lint -W warning "$1"/*
