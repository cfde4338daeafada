# SPDX-License-Identifier: Apache-2.0
"""JSON texts as nobody writes them: trees with duplicate names, changed at random and spelled at will."""

import json
import random
import re
from pathlib import Path
from typing import Any, Iterable


class Members(list):
    """An object: pairs of name and value, so that a name may come twice."""


def read(text: str) -> Any:
    return json.loads(text, object_pairs_hook=Members)


def objects(tree: Any) -> Iterable[Members]:
    """Every object of the tree, from the root on."""
    if isinstance(tree, Members):
        yield tree
        for _, value in tree:
            yield from objects(value)
    elif isinstance(tree, list):
        for value in tree:
            yield from objects(value)


def fold(name: str, dice: random.Random) -> str:
    """The name in another spelling that Go takes for the same."""
    letters = {"s": "sS\u017f", "k": "kK\u212a"}
    return "".join(dice.choice(letters.get(letter.lower(), letter.lower() + letter.upper())) for letter in name)


def names_in(program: Path) -> list[str]:
    """Every option name that a Go program knows, from the tags of its structures."""
    found = set(re.findall(rb'json:"([^",]+)', program.read_bytes()))
    return sorted(name.decode() for name in found if re.fullmatch(rb"[$A-Za-z0-9_]+", name))


class Writer:
    """Writes a tree; with `odd` above 0, some of it as json-glib reads it, but no writer of JSON writes it."""

    def __init__(self, dice: random.Random, odd: float):
        self._dice = dice
        self._odd = odd

    def write(self, tree: Any) -> str:
        if isinstance(tree, Members):
            pairs = ",".join(f"{self._string(name)}:{self.write(value)}" for name, value in tree)
            return self._idle() + "{" + pairs + "}"
        if isinstance(tree, list):
            return "[" + ",".join(map(self.write, tree)) + "]"
        if isinstance(tree, str):
            return self._string(tree)
        if isinstance(tree, int) and not isinstance(tree, bool) and tree >= 0 and self._odds():
            return self._dice.choice((f"0x{tree:x}", f"0{tree:o}", f"{tree}.0", f"0b{tree:b}", f"{tree}e0"))
        return self._idle() + json.dumps(tree)

    def _odds(self) -> bool:
        return self._dice.random() < self._odd

    def _idle(self) -> str:
        return self._dice.choice(("/* a */", "\n\t", "/*{*/")) if self._odds() else ""

    def _string(self, text: str) -> str:
        if self._odds() and "'" not in text and "\\" not in text:
            return f"'{text}'"
        if self._odds() and text:
            place = self._dice.randrange(len(text))
            if ord(text[place]) < 0x80:
                escape = self._dice.choice((f"\\u{ord(text[place]):04x}", f"\\{ord(text[place]):03o}"))
                return json.dumps(text[:place])[:-1] + escape + json.dumps(text[place + 1:])[1:]
        if self._odds():
            return json.dumps(text)[:-1] + self._dice.choice(("\\u0000x", "\\0", "\\ud800y", "\\377", "")) + '"'
        return json.dumps(text, ensure_ascii=False)
