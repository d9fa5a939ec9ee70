"""The site's settings for Sphinx. docs/site/stage.py puts the pages together that it is built of."""

import os
import re
from pathlib import Path

from docutils import nodes
from sphinx.transforms.post_transforms import SphinxPostTransform
from sphinx.util.nodes import make_refnode

project = "Vireo"
author = "the Vireo authors"
copyright = "2026 the Vireo authors"
release = version = os.environ["VIREO_VERSION"]

extensions = ["myst_parser", "breathe", "sphinx.ext.graphviz", "sphinx_copybutton"]
source_suffix = {".md": "markdown", ".rst": "restructuredtext"}
root_doc = "index"
myst_heading_anchors = 4
# A heading of the third level right below the title is no mistake.
suppress_warnings = ["myst.header"]
# What stands behind the prompt of a console is what one copies.
copybutton_prompt_text = "$ "
copybutton_exclude = ".linenos, .gp, .go"

breathe_projects = {"vireo": os.environ["VIREO_XML"]}
breathe_default_project = "vireo"
breathe_default_members = ("members",)
breathe_show_include = False
cpp_id_attributes = ["VIREO_API", "VIREO_APP_API"]
primary_domain = "cpp"
highlight_language = "none"

html_theme = "furo"
# All of them, since the theme of Debian 12 has them for who has chosen dark there, and not for whose system is dark.
html_theme_options = {
    "dark_css_variables": {
        "color-problematic": "#f16b6b",
        "color-foreground-primary": "#d6d9dc",
        "color-foreground-secondary": "#a4abb1",
        "color-foreground-muted": "#878f96",
        "color-foreground-border": "#626a70",
        "color-background-primary": "#14171a",
        "color-background-secondary": "#1b1f23",
        "color-background-hover": "#22272cff",
        "color-background-hover--transparent": "#22272c00",
        "color-background-border": "#323940",
        "color-background-item": "#3d454c",
        "color-brand-primary": "#5ea8f0",
        "color-brand-content": "#6cb0f2",
        "color-highlighted-background": "#1d3f5e",
        "color-highlight-on-target": "#2c2f14",
        "color-api-keyword": "#a4abb1",
        "color-admonition-background": "#191d21",
        "color-card-background": "#191d21",
        "color-card-border": "#22272c",
        "color-card-marginals-background": "#22272c",
    }
}
html_title = f"Vireo {release}"
html_static_path = ["_static"]
html_css_files = ["site.css"]
html_copy_source = False
html_show_sourcelink = False
html_show_sphinx = False
graphviz_output_format = "svg"
pygments_style = "friendly"
pygments_dark_style = "native"


class LinksToReference(SphinxPostTransform):
    """Has names of the API that a guide writes as code lead to the reference, where they mean one thing only."""

    default_priority = 900
    NAME = re.compile(r"(?P<name>(?:[A-Za-z]\w*::)*[A-Za-z]\w*)(?P<call>\(\))?")
    # Header fields and words of everyday, which classes have for names as well.
    WORDS = {"Connection", "Cookie", "Header", "Request", "Response", "Url", "Version"}

    def run(self) -> None:
        guide = self.env.docname
        if guide.split("/")[0] in ("reference", "files", "CHANGELOG"):
            return
        own = "vireo::" if guide.startswith(("docs/app/", "docs/tutorial/", "docs/howto/")) else "ql::"
        names = self._names()
        for literal in list(self.document.findall(nodes.literal)):
            text = self.NAME.fullmatch(literal.astext())
            if not text or isinstance(literal.parent, (nodes.reference, nodes.title)):
                continue
            name = text["name"]
            # One word in small letters, or known from elsewhere, may be anything.
            if name in self.WORDS or (name.islower() and not text["call"]):
                continue
            meant = names.get(name, {})
            meant = {full: place for full, place in meant.items() if full.startswith(own)} or meant
            if len(meant) == 1:
                page, anchor = next(iter(meant.values()))
                literal.replace_self(make_refnode(self.app.builder, guide, page, anchor, literal.deepcopy()))

    def _names(self) -> dict:
        """Each name, and each end of it, with what it may mean: whole names, and where they stand."""
        if not hasattr(self.env, "vireo_names"):
            self.env.vireo_names = {}
            for full, _, kind, page, anchor, _ in self.env.get_domain("cpp").get_objects():
                parts = full.split("::")
                for first in range(len(parts) if not kind.endswith("Param") else 0):
                    self.env.vireo_names.setdefault("::".join(parts[first:]), {}).setdefault(full, (page, anchor))
        return self.env.vireo_names


def bundle_scripts(app, exception) -> None:
    """Puts what a script of the theme imports into it: Debian's are modules, and loaded as if they were none."""
    for script in (Path(app.outdir) / "_static" / "scripts").glob("*.js"):
        text = script.read_text()
        whole = re.sub(r'^import \w+ from "\./([^"]+)";$', lambda line: (script.parent / line[1]).read_text(), text, flags=re.M)
        if whole != text:
            script.write_text(whole)


def setup(app) -> None:
    app.add_post_transform(LinksToReference)
    app.connect("build-finished", bundle_scripts)
