#!/usr/bin/env bash
# The benchmark takes the headers of Boost that are installed, whichever version they are, and else asks for the release's.
set -euo pipefail

tools="$(cd "$(dirname "${BASH_SOURCE[0]}")/../../tools" && pwd)"
# shellcheck source=tools/common.sh
. "$tools/common.sh"
# shellcheck source=tools/dev-bench.sh
. "$tools/dev-bench.sh"

include="$(mktemp -d)"
trap 'rm -rf "$include"' EXIT

without="$(bench_packages "$include")"
grep -qx libboost-dev <<<"$without" || die "Boost is not asked for where it is missing"

mkdir "$include/boost"
echo '#define BOOST_LIB_VERSION "1_99"' >"$include/boost/version.hpp"
with="$(bench_packages "$include")"
if grep -q boost <<<"$with"; then
    die "another Boost is asked for where there is one"
fi
[[ "$with" == "$(grep -vx libboost-dev <<<"$without")" ]] || die "the peers depend on Boost"
