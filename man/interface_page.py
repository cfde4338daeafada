#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Makes the manual page of the bus interface from its XML, so that the two cannot drift apart.

Usage: interface_page.py INTERFACE.xml PAGE.5.in PAGE.5. The template's @METHODS@ and @SIGNALS@ are replaced by one
entry for each member, in the XML's order: its arguments, and the words of the comment before it.
"""

import re
import sys
import textwrap
import xml.etree.ElementTree as ElementTree
from pathlib import Path

Element = ElementTree.Element
ESCAPES = {"\\": "\\e", "-": "\\-", "'": "\\(aq", "`": "\\(ga", "^": "\\(ha", "~": "\\(ti"}


def escape(text: str) -> str:
    """Text as roff takes it literally, also at a line's beginning, where a dot would be a request."""
    escaped = "".join(ESCAPES.get(character, character) for character in text)
    escaped = re.sub(r'"([^"]*)"', r"\\(lq\1\\(rq", escaped)
    return "\\&" + escaped if escaped.startswith(".") else escaped


def words_of(comment: str, member: str) -> str:
    """The comment without its first line, which repeats the member's name, in one paragraph."""
    head, _, rest = comment.strip().partition("\n")
    if head.strip() != f"{member}:":
        raise SystemExit(f"the comment before {member} begins with {head!r}")
    return " ".join(rest.split())


def arguments(member: Element, directions: tuple[str | None, ...]) -> str:
    found = [argument for argument in member.iter("arg") if argument.get("direction") in directions]
    return ", ".join(f"{argument.get('name')} ({argument.get('type')})" for argument in found)


def signature(member: Element) -> str:
    """What stands behind the name: what goes in, and what comes out."""
    taken = arguments(member, ("in", None))
    given = arguments(member, ("out",))
    return f"({taken})" + (f" \u2192 {given}" if given else "")


def entry(member: Element, comment: str) -> str:
    name = member.get("name") or ""
    shown = escape(signature(member)).replace("\u2192", "\\(->")
    lines = textwrap.wrap(escape(words_of(comment, name)), 78, break_on_hyphens=False)
    return "\n".join([".TP", f'.BR {name} " {shown}"', *lines])


def entries(interface: Element, kind: str) -> str:
    """All members of a kind; each has its comment right before it."""
    found, comment = [], ""
    for child in interface:
        if child.tag is ElementTree.Comment:
            comment = child.text or ""
        elif child.tag == kind:
            found.append(entry(child, comment))
            comment = ""
    return "\n".join(found)


def main() -> None:
    source, template, page = (Path(word) for word in sys.argv[1:])
    parser = ElementTree.XMLParser(target=ElementTree.TreeBuilder(insert_comments=True))
    interface = ElementTree.parse(source, parser).getroot().find("interface")
    if interface is None:
        raise SystemExit(f"{source} has no interface")
    text = template.read_text()
    for place, kind in (("@METHODS@", "method"), ("@SIGNALS@", "signal")):
        text = text.replace(place, entries(interface, kind))
    page.write_text(text)


main()
