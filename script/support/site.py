"""Makes a site of the documents as they are: each page in HTML, and the files that they link to beside them. What there is
to say against a link of the result is printed.

usage: site.py FOLDER      FOLDER/api has the reference of the interface already
"""

import html
import os
import re
import shutil
import sys
from pathlib import Path

import markdown

from pages import ROOT, anchor_of, documents

TEMPLATE = """<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>{title} - KXPublisher</title>
<link rel="stylesheet" href="{top}style.css">
</head>
<body>
<nav><a href="{top}index.html">KXPublisher</a> {links} <a href="{top}api/index.html">Interface</a></nav>
<main>
{body}
</main>
</body>
</html>
"""

STYLE = """body { margin: 0; font: 16px/1.55 system-ui, sans-serif; color: #1b1b1b; background: #fff }
nav { padding: 10px 24px; background: #f0f3f6; border-bottom: 1px solid #d5dbe1 }
nav a { margin-right: 14px }
main { max-width: 62rem; margin: 0 auto; padding: 12px 24px 60px }
a { color: #0b57a4 }
code { font: 0.9em ui-monospace, monospace; background: #f2f4f6; padding: 1px 4px; border-radius: 3px }
pre { background: #f2f4f6; padding: 12px; overflow-x: auto; border-radius: 4px; line-height: 1.4 }
pre code { background: none; padding: 0 }
table { border-collapse: collapse; display: block; overflow-x: auto }
th, td { border: 1px solid #d5dbe1; padding: 5px 9px; text-align: left; vertical-align: top }
img { max-width: 100%; height: auto }
blockquote { margin-left: 0; padding-left: 16px; border-left: 3px solid #d5dbe1; color: #444 }
"""

IN_THE_BAR = ("docs/linux.md", "docs/ios.md", "docs/message-reference.md", "docs/behaviour.md", "docs/privacy.md",
              "docs/architecture.md", "CONTRIBUTING.md")
NAMED_CODE = re.compile(r"^(```\w+) +\S.*$", re.M)  # "```cpp Name.h", which the converter does not know
REFERENCE = re.compile(r'(?<=\s)(href|src)="([^"]*)"')


def address_of_page(name):
    """Where a page is in the site: those of docs/ at the top."""
    return name.removeprefix("docs/").removesuffix(".md") + ".html"


class Site:
    def __init__(self, folder):
        self.folder = folder
        self.pages = {page.name: page for page in documents()}
        self.sources = []  # files of the tree that a page links to
        self.complaints = []

    def make(self):
        (self.folder / "style.css").write_text(STYLE, encoding="utf-8")
        for page in self.pages.values():
            self.write(address_of_page(page.name), self.title_of(page), self.body_of(page))
        done = set()
        while self.sources:
            name = self.sources.pop()
            if name not in done:
                done.add(name)
                self.write_source(name)
        self.check()
        return self.complaints

    @staticmethod
    def title_of(page):
        return next((line.lstrip("# ").replace("`", "") for _, line in page.prose if line.startswith("#")), page.name)

    def body_of(self, page):
        return self.with_links(page, markdown.markdown(
            NAMED_CODE.sub(r"\1", page.file.read_text(encoding="utf-8")), output_format="html",
            extensions=["tables", "fenced_code", "toc", "sane_lists"],
            extension_configs={"toc": {"slugify": lambda text, _: anchor_of(text)}}))

    def with_links(self, page, body):
        """The same, with each link leading to where its target is in the site."""
        address = address_of_page(page.name)

        def replaced(match):
            target = html.unescape(match[2])
            if re.match(r"[a-z]+:", target) or target.startswith("#"):
                return match[0]
            name, _, anchor = target.partition("#")
            file = (page.file.parent / name).resolve()
            if not file.exists():
                self.complaints.append(f"{page.name}: no such file: {target}")
                return match[0]
            new = relative(self.address_of(os.path.relpath(file, ROOT)), address) + (f"#{anchor}" if anchor else "")
            return f'{match[1]}="{html.escape(new)}"'
        return REFERENCE.sub(replaced, body)

    def address_of(self, name):
        if name in self.pages:
            return address_of_page(name)
        if name.startswith("docs/") and name.endswith((".svg", ".png")):
            shutil.copy(ROOT / name, self.folder / name.removeprefix("docs/"))
            return name.removeprefix("docs/")
        self.sources.append(name)
        return f"source/{name}/index.html" if (ROOT / name).is_dir() else f"source/{name}.html"

    def write_source(self, name):
        """A file as text, or a folder as a list of what is in it."""
        file = ROOT / name
        address = self.address_of(name)
        self.sources.pop()
        if file.is_dir():
            entries = sorted(entry for entry in file.iterdir() if not entry.name.startswith((".", "__")))
            items = "".join(f'<li><a href="{relative(self.address_of(os.path.relpath(entry, ROOT)), address)}">'
                            f'{html.escape(entry.name)}{"/" if entry.is_dir() else ""}</a></li>\n' for entry in entries)
            body = f"<h1>{html.escape(name)}</h1>\n<ul>\n{items}</ul>"
        else:
            text = file.read_text(encoding="utf-8", errors="replace")
            body = f"<h1>{html.escape(name)}</h1>\n<pre><code>{html.escape(text)}</code></pre>"
        self.write(address, name, body)

    def write(self, address, title, body):
        top = "../" * address.count("/")
        links = " ".join(f'<a href="{top}{address_of_page(name)}">{html.escape(self.title_of(self.pages[name]))}</a>'
                         for name in IN_THE_BAR if name in self.pages)
        file = self.folder / address
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(TEMPLATE.format(title=html.escape(title), top=top, links=links, body=body), encoding="utf-8")

    # ---- The result, as a browser finds it

    def check(self):
        texts = {}
        for file in self.folder.rglob("*.html"):
            if "api" in file.relative_to(self.folder).parts[:1]:
                continue
            texts[file] = file.read_text(encoding="utf-8")
        for file, text in texts.items():
            for match in REFERENCE.finditer(re.sub(r"<pre>.*?</pre>", "", text, flags=re.S)):
                target = html.unescape(match[2])
                if re.match(r"[a-z]+:", target):
                    continue
                name, _, anchor = target.partition("#")
                other = (file.parent / name).resolve() if name else file
                if not other.is_file():
                    self.complaints.append(f"{file.relative_to(self.folder)}: leads nowhere: {target}")
                elif anchor and f'id="{anchor}"' not in texts.get(other, ""):
                    self.complaints.append(f"{file.relative_to(self.folder)}: no such heading: {target}")


def relative(address, of):
    return os.path.relpath(address, os.path.dirname(of) or ".")


def main(folder):
    complaints = Site(folder.resolve()).make()
    for complaint in complaints:
        print(complaint)
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main(Path(sys.argv[1])))
