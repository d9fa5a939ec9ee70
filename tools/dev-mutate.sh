# shellcheck shell=bash
# mutate [--count N] [OPTION...] -- changes the sources and looks whether a test notices

# Options go to the mutator; --help explains them. It works in copies of the tree, in build/mutate.
command_mutate() {
    need "${PACKAGES_BUILD[@]}" "${PACKAGES_TEST[@]}" python3
    exec env PYTHONDONTWRITEBYTECODE=1 python3 "$ROOT/tools/mutate.py" --root "$ROOT" --output "$ROOT/build/mutate" "$@"
}
