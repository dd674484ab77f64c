#!/bin/sh
# Measures how many deliberate faults the test suite catches; see scripts/mutate.py.
exec python3 "$(dirname "$0")/mutate.py" "$@"
