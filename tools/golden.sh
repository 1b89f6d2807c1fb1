#!/usr/bin/env bash
# Boots the servers of tests/golden/ with the built programs and compares with what is kept there; --accept writes it
# anew, so that a reviewer sees in the diff what a change does. usage: golden.sh [--accept] [NAME...]
set -euo pipefail
cd "$(dirname "$0")/.."
exec tests/golden/golden.py . build/host/bds-sim "$@"
