# shellcheck shell=bash
# format -- lays out all C++ files as lint wants them

command_format() {
    need "${PACKAGES_LINT[@]}"
    has_lint_version || die "the sources are laid out by clang-format $LINT_VERSION, and this is another version"
    project_files '*.h' '*.cpp' | xargs -r -d '\n' clang-format -i
}
