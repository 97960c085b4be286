"""A page of the documentation: its fenced blocks, and what the tests are told in its comments."""

import re


class Block:
    """A fenced block: its language, the words after it, its text, and the lines it stands on."""

    def __init__(self, info, first, lines):
        self.language, *self.words = info.split() or [""]
        self.first = first  # index of the first line of the text
        self.lines = lines

    @property
    def text(self):
        return "".join(line + "\n" for line in self.lines)


class Page:
    def __init__(self, path):
        self.path = path
        with open(path, encoding="utf-8") as file:
            self.lines = file.read().split("\n")
        self.blocks = list(self._blocks())

    def _blocks(self):
        info, first = None, 0
        for index, line in enumerate(self.lines):
            if not line.startswith("```"):
                continue
            if info is None:
                info, first = line[3:], index + 1
            else:
                yield Block(info, first, self.lines[first:index])
                info = None
        if info is not None:
            raise ValueError("%s: the block in line %d is not closed" % (self.path, first))

    def prepared(self):
        """The words of the page's comment <!-- prepared: ... -->: what it finds in its world."""
        found = re.search(r"<!-- prepared:([^>]*)-->", "\n".join(self.lines))
        return found[1].split() if found else []

    def prose(self):
        """The text without fenced blocks."""
        inside, lines = False, []
        for line in self.lines:
            if line.startswith("```"):
                inside = not inside
            elif not inside:
                lines.append(line)
        return "\n".join(lines)

    def replace(self, texts):
        """Writes the page with the new lines of some blocks: [(block, lines)]."""
        for block, lines in sorted(texts, key=lambda item: -item[0].first):
            self.lines[block.first:block.first + len(block.lines)] = lines
        with open(self.path, "w", encoding="utf-8") as file:
            file.write("\n".join(self.lines))
