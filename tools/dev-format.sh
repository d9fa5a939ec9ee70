# shellcheck shell=bash
# format -- lays out all C++ files as lint wants them

command_format() {
    need "${PACKAGES_LINT[@]}"
    project_files '*.h' '*.cpp' | xargs -r -d '\n' clang-format-14 -i
}
