#!/usr/bin/env bash
# The packages keep Debian's rules. usage: debian_lintian.sh DIRECTORY-OF-PACKAGES
set -euo pipefail

lintian --allow-root --tag-display-limit 0 --fail-on error "$1"/*.deb
