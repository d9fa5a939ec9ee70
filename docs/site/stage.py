"""Puts the pages of the site together in one directory, for Sphinx: the guides, as they stand in the repository, a page for
each file of it that they link to, and a page for each public header.

usage: stage.py SOURCE-TREE XML OUTPUT
"""

from __future__ import annotations

import os
import re
import shutil
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path

GUIDES = ("README.md", "CHANGELOG.md", "CONTRIBUTING.md", "SECURITY.md", "packaging/README.md", "docs/**/*.md",
          "examples/reverse-proxy/README.md")
LANGUAGES = {".cpp": "cpp", ".h": "cpp", ".py": "python", ".sh": "bash", ".cmake": "cmake", ".js": "js", ".html": "html",
             ".json": "json", ".service": "ini", ".socket": "ini"}
LINK = re.compile(r"(?<=\]\()([^)\s#]+)(#[^)\s]*)?(?=\))")


class Stage:
    def __init__(self, source: Path, output: Path) -> None:
        self._source = source
        self._output = output
        self._guides = {
            path.relative_to(source) for pattern in GUIDES for path in source.glob(pattern)
            if "site" not in path.relative_to(source).parts[1:2]
        }
        self._files: set[Path] = set()

    def write_guides(self) -> None:
        for guide in sorted(self._guides):
            self._write(guide, self._with_links(guide, (self._source / guide).read_text()) + self._pages_below(guide))
        for image in (self._source / "docs").rglob("*.svg"):
            target = self._output / image.relative_to(self._source)
            target.parent.mkdir(parents=True, exist_ok=True)
            shutil.copyfile(image, target)
        for page in (self._source / "docs" / "site").iterdir():
            if page.suffix == ".md":
                self._write(Path(page.name), self._with_links(Path(page.name), page.read_text()))

    def _pages_below(self, guide: Path) -> str:
        """The pages of a directory belong to its README, but for those that the landing page names."""
        if guide.parent.name not in ("tutorial", "howto"):
            return ""
        pages = sorted(page.stem for page in self._guides if page.parent == guide.parent and page != guide)
        return "\n```{toctree}\n:hidden:\n\n" + "\n".join(pages) + "\n```\n" if guide.name == "README.md" else ""

    def _write(self, page: Path, text: str) -> None:
        target = self._output / page
        target.parent.mkdir(parents=True, exist_ok=True)
        target.write_text(text)

    def _with_links(self, page: Path, text: str) -> str:
        """With links to files of the repository turned to their pages, outside code."""
        lines = []
        in_code = False
        for line in text.splitlines(keepends=True):
            if line.lstrip().startswith("```"):
                in_code = not in_code
            lines.append(line if in_code else LINK.sub(lambda link: self._target(page, link), line))
        return "".join(lines)

    def _target(self, page: Path, link: re.Match) -> str:
        target, fragment = link[1], link[2] or ""
        if re.match(r"[a-z]+:", target):
            return link[0]
        meant = Path(os.path.normpath(page.parent / target))
        whole = self._source / meant
        if whole.is_dir() and meant / "README.md" in self._guides:
            meant /= "README.md"
        elif whole.is_dir() or (whole.is_file() and meant not in self._guides and whole.suffix not in (".svg", ".md")):
            meant = self._page_of(meant)
        elif not whole.exists() and not (self._source / "docs" / "site" / meant.name).exists():
            return link[0]
        return os.path.relpath(meant, page.parent) + fragment

    def _page_of(self, file: Path) -> Path:
        page = Path("files") / (str(file) + ".md")
        if file in self._files:
            return page
        self._files.add(file)
        whole = self._source / file
        if whole.is_dir():
            parts = [f"- [{part.name}]({os.path.relpath(self._page_of(part.relative_to(self._source)), page.parent)})"
                     for part in sorted(whole.iterdir()) if part.suffix != ".md"]
            self._write(page, f"---\norphan: true\n---\n\n# {file}\n\n" + "\n".join(parts) + "\n")
            return page
        language = "cmake" if file.name == "CMakeLists.txt" else LANGUAGES.get(file.suffix, "none")
        copy = self._output / "files" / file
        copy.parent.mkdir(parents=True, exist_ok=True)
        shutil.copyfile(whole, copy)
        self._write(page, f"---\norphan: true\n---\n\n# {file}\n\n```{{literalinclude}} {file.name}\n:language: {language}\n```\n")
        return page

    # ---- The reference ----

    def write_reference(self, xml: Path) -> None:
        for file in xml.glob("*.xml"):
            self._dissolve_untitled(file)
        headers: dict[str, list[str]] = {}
        for header in sorted((self._source / "include" / "vireo").rglob("*.h")):
            name = str(header.relative_to(self._source / "include"))
            headers.setdefault(str(Path(name).parent), []).append(name)
        titles = {"vireo/app": "The toolkit", "vireo": "The core", "vireo/support": "Support services"}
        index = ["# Reference\n", "A page for each public header. What is in none of them is not for applications.\n"]
        for directory, title in titles.items():
            names = headers.get(directory, [])
            index.append(f"## {title}\n\n```{{toctree}}\n:maxdepth: 1\n")
            for name in names:
                if self._write_header(xml, name):
                    index.append(str(Path(name).with_suffix("")))
            index.append("```\n")
        self._write(Path("reference/index.md"), "\n".join(index))

    @staticmethod
    def _dissolve_untitled(file: Path) -> None:
        """What stands together between braces without a title is no section of its own: it stays where the header has it."""
        tree = ElementTree.parse(file)
        changed = False
        for compound in tree.getroot().findall("compounddef"):
            sections = compound.findall("sectiondef")
            plain = next((section for section in sections if section.get("kind") == "public-func"), None)
            for section in sections:
                if section.get("kind") != "user-defined" or section.find("header") is not None:
                    continue
                changed = True
                section.set("kind", "public-func")
                if plain is not None:
                    plain.extend(section.findall("memberdef"))
                    plain[:] = sorted(plain, key=lambda member: int(member.find("location").get("line")))
                    compound.remove(section)
        if changed:
            tree.write(file, encoding="utf-8", xml_declaration=True)

    def _write_header(self, xml: Path, name: str) -> bool:
        file = next((root for root in self._file_compounds(xml) if root.find("location").get("file") == "include/" + name), None)
        if file is None:
            return False
        classes = [inner.text for inner in file.findall("innerclass")
                   if inner.get("prot") == "public" and "::impl::" not in inner.text]
        nested = {one for one in classes for other in classes if one.startswith(other + "::")}
        parts = [f"# {Path(name).name}\n", f"```cpp\n#include <{name}>\n```\n"]
        for one in classes:
            if one in nested:
                continue
            kind = "struct" if self._is_struct(xml, one) else "class"
            parts.append(f"## {one}\n\n```{{doxygen{kind}}} {one}\n:members:\n```\n")
        free = self._free_members(file)
        if free:
            parts.append("## Beside them\n" if classes else "")
            parts += free
        if len(parts) == 2:
            return False
        self._write(Path("reference") / Path(name).with_suffix(".md"), "\n".join(parts))
        return True

    def _file_compounds(self, xml: Path) -> list:
        if not hasattr(self, "_compounds"):
            self._compounds = [ElementTree.parse(path).getroot().find("compounddef") for path in sorted(xml.glob("*_8h.xml"))]
        return self._compounds

    def _is_struct(self, xml: Path, name: str) -> bool:
        if not hasattr(self, "_structs"):
            index = ElementTree.parse(xml / "index.xml").getroot()
            self._structs = {each.findtext("name") for each in index if each.get("kind") == "struct"}
        return name in self._structs

    @staticmethod
    def _free_members(file) -> list[str]:
        """What a header has outside classes: functions with their parameters, since several may have one name."""
        found = []
        for member in file.iter("memberdef"):
            name = member.findtext("qualifiedname") or member.findtext("name")
            kind = member.get("kind")
            if "::impl::" in name or kind not in ("function", "enum", "typedef", "variable"):
                continue
            if kind == "function":
                name += member.findtext("argsstring")
            found.append(f"```{{doxygen{kind}}} {name}\n```\n")
        return found


def main() -> None:
    source, xml, output = (Path(argument).resolve() for argument in sys.argv[1:])
    shutil.rmtree(output, ignore_errors=True)
    output.mkdir(parents=True)
    stage = Stage(source, output)
    stage.write_guides()
    stage.write_reference(xml)


if __name__ == "__main__":
    main()
