#!/bin/sh
# Every check and test, on a fresh Debian 12 machine: installs what is missing, builds, and runs them.
set -eu
cd "$(dirname "$0")"
tools/install_packages.sh build run test
exec make --no-print-directory test
