# shellcheck shell=bash
# docs -- builds the API reference and the guides into one site

# Fails when a page of the site links to a file that isn't there. Doxygen looks at its own references only.
docs_check_links() {
    local site="$1" links page target broken=0
    links="$(cd "$site" && grep -oE 'href="[^"#:]+["#]' ./*.html | sort -u)"
    while IFS=: read -r page target; do
        target="${target#href=\"}"
        target="${target%[\"#]}"
        if [[ ! -e "$site/$target" ]]; then
            echo "docs: $page links to $target, which is not there" >&2
            broken=1
        fi
    done <<<"$links"
    return "$broken"
}

command_docs() {
    need "${PACKAGES_BUILD[@]}" dpkg-dev doxygen graphviz
    build_package docs
    docs_check_links "$ROOT/build/package/docs/html"
    echo "dev: open build/package/docs/html/index.html"
}
