"""docs/error-codes.md's tables, made from host/result_codes.inc."""

import os
import re

from kestro_case import SOURCE

TABLE = os.path.join(SOURCE, "host", "result_codes.inc")
_STRING = r'((?:"(?:[^"\\]|\\.)*"\s*)+)'
_ENTRY = re.compile(r'^(?:SECTION\(%s\)|(?:SYSTEM_)?CODE\((0x[0-9A-F]{8}), ?\s*%s,\s*%s,\s*%s,\s*%s\))' %
                    ((_STRING,) * 5), re.M)


def _text(literals):
    return "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', literals))


def sections():
    """{heading: [(code, meaning, what to do)]}"""
    found = {}
    with open(TABLE, encoding="utf-8") as file:
        for entry in _ENTRY.finditer(file.read()):
            if entry[1]:
                rows = found[_text(entry[1])] = []
            else:
                rows.append((entry[2], _text(entry[4]), _text(entry[5])))
    return found


def _signed(code):
    value = int(code, 16)
    return value - (1 << 32) if value >> 31 else value


def page_with_tables(text):
    """The page, each table as it ought to be."""
    for heading, rows in sections().items():
        table = "".join("| `%s` | `%d` | %s | %s |\n" % (code, _signed(code), meaning, advice)
                        for code, meaning, advice in rows)
        text = re.sub(r"(?m)(^## %s\n(?:(?!## )[^|].*\n|\n)*\| HRESULT .*\n\|---.*\n)(?:\|.*\n)*"
                      % re.escape(heading), lambda found: found[1] + table, text)
    return text


def refresh():
    path = os.path.join(SOURCE, "docs", "error-codes.md")
    with open(path, encoding="utf-8") as file:
        text = page_with_tables(file.read())
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
