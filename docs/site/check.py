"""Looks whether each link of the site leads to a page of it, whether guides lead to the reference, whether its search finds
what is in both, and whether a browser can run the theme's scripts.

usage: check.py SITE
"""

import html.parser
import re
import sys
import urllib.parse
from pathlib import Path

# Words of guides and of the reference, as the search's stemmer leaves them.
TERMS = ("trustproxi", "haproxi", "setmaxconnect", "websocketgroup", "drain")


class Links(html.parser.HTMLParser):
    def __init__(self) -> None:
        super().__init__()
        self.targets: set[str] = set()
        self.names: set[str] = set()

    def handle_starttag(self, tag: str, attributes: list) -> None:
        values = dict(attributes)
        self.names.update(value for key in ("id", "name") if (value := values.get(key)))
        for key in ("href", "src", "data"):
            if (value := values.get(key)) and tag != "meta":
                self.targets.add(value)


def main() -> int:
    site = Path(sys.argv[1]).resolve()
    pages = {}
    for page in site.rglob("*.html"):
        pages[page] = Links()
        pages[page].feed(page.read_text())
    broken = []
    for page, links in pages.items():
        for target in links.targets:
            parts = urllib.parse.urlsplit(target)
            if parts.scheme or parts.netloc:
                continue
            file = (page.parent / urllib.parse.unquote(parts.path)).resolve() if parts.path else page
            file = file / "index.html" if file.is_dir() else file
            if not file.exists() or (parts.fragment and file in pages and parts.fragment not in pages[file].names):
                broken.append(f"{page.relative_to(site)} links to {target}")
    index = (site / "searchindex.js").read_text()
    broken += [f"the search does not find {term}" for term in TERMS if f"{term}:" not in index and f'"{term}":' not in index]
    if not any("reference/vireo/app/App.html#" in target for target in pages[site / "docs/app/running.html"].targets):
        broken.append("docs/app/running.html does not lead to the reference")
    for script in site.rglob("*.js"):
        if re.search(r"^import ", script.read_text(), re.M):
            broken.append(f"{script.relative_to(site)} is a module, which no page loads as one")
    for line in broken:
        print(f"docs: {line}", file=sys.stderr)
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main())
