# shellcheck shell=bash
# docs -- builds the guides and the API reference into one site

readonly PACKAGES_DOCS=(doxygen graphviz python3-sphinx furo python3-breathe python3-myst-parser python3-sphinx-copybutton)

command_docs() {
    need "${PACKAGES_BUILD[@]}" "${PACKAGES_DOCS[@]}" dpkg-dev
    build_package docs
    echo "dev: open build/package/docs/html/index.html"
}
