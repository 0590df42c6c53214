#!/usr/bin/env python3
"""build.py OUTPUT: makes the site of the documentation in OUTPUT/html, and checks its links.

Needs Doxygen and the theme of Debian's package doxygen-awesome-css. Fails where Doxygen has a
warning, where a public name is not documented, and where a link leads nowhere.
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import urllib.parse

ROOT = pathlib.Path(__file__).resolve().parents[2]
THEME = pathlib.Path("/usr/share/doxygen-awesome-css")
SCRIPTS = """\
<script type="text/javascript" src="$relpath^doxygen-awesome-darkmode-toggle.js"></script>
<script type="text/javascript" src="$relpath^doxygen-awesome-fragment-copy-button.js"></script>
<script type="text/javascript" src="$relpath^doxygen-awesome-paragraph-link.js"></script>
<script type="text/javascript" src="$relpath^doxygen-awesome-interactive-toc.js"></script>
<script type="text/javascript">
    DoxygenAwesomeDarkModeToggle.init()
    DoxygenAwesomeFragmentCopyButton.init()
    DoxygenAwesomeParagraphLink.init()
    DoxygenAwesomeInteractiveToc.init()
</script>
"""


def write_header(output):
    """Doxygen's own page header with the theme's scripts."""
    names = [str(output / name) for name in ("header.html", "footer.html", "style.css")]
    subprocess.run(["doxygen", "-w", "html", *names], check=True, stdout=subprocess.DEVNULL)
    header = pathlib.Path(names[0])
    header.write_text(header.read_text().replace("</head>", SCRIPTS + "</head>", 1))


def run_doxygen(output):
    version = re.search(r"project\(tevalon-base VERSION ([0-9.]+)",
                        (ROOT / "CMakeLists.txt").read_text())[1]
    environment = dict(os.environ, DOCS_ROOT=str(ROOT), DOCS_OUTPUT=str(output),
                       DOCS_THEME=str(THEME), DOCS_VERSION=version)
    return subprocess.run(["doxygen", str(ROOT / "docs/site/Doxyfile")], env=environment,
                          check=False).returncode == 0


def mend_pages(html):
    """Doxygen names a list of nested classes, and leaves it out, where all of them are private."""
    link = re.compile(r'\s*<a href="#nested-classes">Classes</a>(?: &#124;)?')
    for page in html.glob("class*.html"):
        text = page.read_text()
        if 'name="nested-classes"' not in text and link.search(text):
            page.write_text(link.sub("", text))


def dead_links(html):
    """Each link of a page to a file or a place that is not there."""
    pages = {path.relative_to(html).as_posix(): path.read_text(errors="replace")
             for path in html.rglob("*.html")}
    places = {name: set(re.findall(r'(?:id|name)="([^"]+)"', text))
              for name, text in pages.items()}
    links = 0
    targets = {name: re.findall(r'(?:href|src)="([^"]+)"', text) for name, text in pages.items()}
    # The tree at the side: of titles and where they lead.
    tree = (html / "navtreedata.js").read_text()
    targets["navtreedata.js"] = re.findall(r'\[ "[^"]*", "([^"]+)"', tree)
    for name in sorted(targets):
        for target in targets[name]:
            if re.match(r"[a-z]+:|//", target):
                continue
            links += 1
            path, _, place = urllib.parse.unquote(target).partition("#")
            page = os.path.normpath(os.path.join(os.path.dirname(name), path)) if path else name
            if not (html / page).exists():
                yield f"{name}: '{target}' leads nowhere"
            elif place and page in places and place not in places[page]:
                yield f"{name}: there is no '{target}'"
    if links < 1000:
        yield f"only {links} links found: something is wrong with the site"


def main():
    output = pathlib.Path(sys.argv[1]).resolve()
    if not THEME.is_dir():
        sys.exit("docs: the package doxygen-awesome-css is not installed")
    shutil.rmtree(output, ignore_errors=True)
    output.mkdir(parents=True)
    write_header(output)
    is_good = run_doxygen(output)
    mend_pages(output / "html")
    faults = list(dead_links(output / "html"))
    for fault in faults:
        print(f"docs: {fault}", file=sys.stderr)
    if faults or not is_good:
        sys.exit(1)
    print(f"docs: {len(list((output / 'html').glob('*.html')))} pages, no warning, no dead link")


if __name__ == "__main__":
    main()
