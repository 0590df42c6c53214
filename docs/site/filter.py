#!/usr/bin/env python3
"""filter.py FILE: writes FILE as Doxygen wants to read it. Called by Doxygen for each input.

Markdown is written as other readers understand it: headings are linked to by their text, pages by
their file names. Headers begin with a plain comment that says what the file is for.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]


def slug(heading):
    """The anchor that readers of Markdown give a heading."""
    text = re.sub(r"[`*]", "", heading).strip().lower()
    return re.sub(r"[^\w\- ]", "", text).replace(" ", "-")


def page_id(path):
    """README.md of a folder is called after the folder."""
    if path.name == "README.md":
        return "index" if path.parent == ROOT else path.parent.name.replace("_", "-")
    return path.stem.lower()


def is_page(path):
    return path.suffix == ".md" and path.is_file() and "build" not in path.relative_to(ROOT).parts


def link(source, text, target):
    """A link to a page or to a place in one as a reference; to another file as its text alone."""
    if "://" in target:
        return f"[{text}]({target})"
    name, _, anchor = target.partition("#")
    page = (source.parent / name).resolve() if name else source
    if page.suffix in (".svg", ".png"):
        return f"[{text}]({target})"
    if not page.exists():
        return f"@ref {name}"  # Doxygen's to complain of.
    if not is_page(page):
        return text
    where = f"{page_id(page)}--{anchor}" if anchor else page_id(page)
    if where == "index":
        return f'<a href="index.html">{text}</a>'
    return f"[{text}](@ref {where})"


def unlinked(line):
    """Doxygen drops a %, which keeps a word from becoming a link; a scheme is one even in code."""
    return re.sub(r"`[^`]+`", lambda code: re.sub(
        r"\bfile:", "%file:", code[0].replace("%", "%%")), line)


def markdown(source, text):
    lines = []
    fence = None
    is_first = True
    places = {}
    for line in text.splitlines():
        mark = re.match(r"(```+)\s*(\w*)", line)
        if fence is None and mark:
            fence = mark[1]
            # Doxygen takes the language as a file's suffix; what it does not know stays as it is.
            language = {"cpp": "{.cpp}", "cmake": "{.cmake}"}.get(mark[2], "")
            lines.append(fence + language)
            continue
        if fence is not None:
            if line.startswith(fence):
                fence = None
            lines.append(line)
            continue
        heading = re.match(r"(#+) (.*)", line)
        if heading and is_first:
            is_first = False
            name = page_id(source)
            lines += [f"# {heading[2]}" + (f" {{#{name}}}" if name != "index" else ""), "", "[TOC]"]
        elif heading:
            place = slug(heading[2])
            count = places.setdefault(place, 0)
            places[place] += 1
            if count > 0:  # As readers of Markdown number those of one name.
                place += f"-{count}"
            lines.append(f"{line} {{#{page_id(source)}--{place}}}")
        else:
            lines.append(line)
    text = "\n".join(lines) + "\n"
    blocks = re.split(r"(^```.*?^```\n)", text, flags=re.S | re.M)
    for i in range(0, len(blocks), 2):
        blocks[i] = re.sub(r"^(?!    ).*$", lambda found: unlinked(found[0]), blocks[i], flags=re.M)
        blocks[i] = re.sub(r"(?<!!)\[((?:[^\[\]]|\[[^\]]*\])*)\]\(([^()\s]+)\)",
                           lambda found: link(source, found[1], found[2]), blocks[i])
    return "".join(blocks)


def header(text):
    """The comment at the front becomes the file's description."""
    # Instances, specialisations and deduction guides are no names of their own.
    text = re.sub(r"^(?:extern template|template <>)[^;]*;|^\w+\([^()]*\)\s*->[^;]*;",
                  lambda found: "\n" * found[0].count("\n"), text, flags=re.M)
    text = re.sub(r"^( *///| *\*|  \*)(?! {5})(.*)$",
                  lambda found: found[1] + re.sub(r"%(?=\w)", "%%", found[2]), text, flags=re.M)
    # What is written as global is not looked up.
    text = re.sub(r"(///.*?[\s`])::(?=\w)", r"\1\::", text)
    lines = text.splitlines()
    if lines and lines[0].startswith("/* "):
        lines[0:1] = ["/** @file", " * " + lines[0][3:].partition(": ")[2]]
        return "\n".join(lines) + "\n"
    if not (lines and re.match(r"// \w+\.h: ", lines[0])):
        return text
    comment = ["/// @file", "/// " + lines[0].partition(": ")[2]]
    for count, line in enumerate(lines[1:], 1):
        if not line.startswith("//"):
            break
        comment.append("/" + line)
    return "\n".join(comment + lines[count:]) + "\n"


def main():
    source = pathlib.Path(sys.argv[1]).resolve()
    text = source.read_text()
    if source.suffix == ".md":
        text = markdown(source, text)
    elif source.suffix == ".h":
        text = header(text)
    sys.stdout.write(text)


if __name__ == "__main__":
    main()
