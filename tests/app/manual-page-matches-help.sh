#!/bin/sh
# The manual page documents exactly the options that `pelma --help` lists.
set -eu
pelma=$1
page=$2
from_help=$("$pelma" --help | grep -oE -- '--[a-z][a-z-]*' | sort -u)
from_page=$(grep -oE '\\-\\-([a-z]|\\-)+' "$page" | sed 's/\\//g' | sort -u)
if [ "$from_help" != "$from_page" ]; then
  echo "--help lists:"; echo "$from_help"
  echo "pelma.1 lists:"; echo "$from_page"
  exit 1
fi
