"""The site's settings for Sphinx. docs/site/stage.py puts the pages together that it is built of."""

import os

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
