# SPDX-License-Identifier: LGPL-2.1-or-later
# shellcheck shell=bash
# Sourced by .ci/run and .ci/nightly with a list of lanes: runs them all, whatever becomes of those before, and counts them.

failed=()
for lane; do
    began=$SECONDS
    echo "=== $lane"
    result=passed
    # shellcheck disable=SC2086
    ./$lane || { result=FAILED failed+=("$lane"); }
    echo "=== $lane: $result after $((SECONDS - began)) s"
done
[ ${#failed[@]} = 0 ] || printf 'failed: %s\n' "${failed[@]}"
echo "lanes: $(($# - ${#failed[@]})) passed, ${#failed[@]} failed"
[ ${#failed[@]} = 0 ]
