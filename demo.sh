#!/bin/sh
# A logon with each generation of card, on a fresh Debian 12 machine: installs what is missing, builds,
# and shows it.
set -eu
cd "$(dirname "$0")"
tools/install_packages.sh build run
exec make --no-print-directory demo
