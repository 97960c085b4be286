"""Doxygen's view of a public header: reads the header named as argument, prints it with its plain
comments as documentation comments. In kestro.h a comment stands above one or more declarations and has

    Name - what it does.

      Argument  what it is

    Writes  ...
    Returns ...        (a table)
    Leaves  ...
"""

import re
import sys
import textwrap

ARGUMENT = re.compile(r"   (\w+)  +(\S.*)")
PART = re.compile(r" (Writes|Prints|Returns|Leaves|Throws) +")


def escaped(text):
    return re.sub(r'([\\@#<>&%])', r"\\\1", text)


def verbatim(lines):
    text = textwrap.dedent("\n".join(lines)).strip("\n")
    return ["@verbatim", *text.split("\n"), "@endverbatim"]


def argument_lines(lines):
    """The arguments, and a remark about them; a deeper line goes on with the one before."""
    remark = []
    for line in lines:
        found = ARGUMENT.fullmatch(line)
        if found:
            yield "@param %s %s" % (found[1], escaped(found[2]))
        elif line.startswith("    "):
            yield "  " + escaped(line.strip())
        else:
            remark.append(escaped(line.strip()))
    if remark:
        yield "@remark " + " ".join(remark)


def paragraphs(lines):
    paragraph = []
    for line in [*lines, ""]:
        if line.strip():
            paragraph.append(line)
        elif paragraph:
            yield paragraph
            paragraph = []


def function_comment(lines):
    """What stands above each of the declarations below a comment."""
    title, *rest = paragraphs(lines)
    what = " ".join(line.strip() for line in title)
    if len(re.findall(r"\w - ", what)) == 1:
        what = what.split(" - ", 1)[1]
    made = [escaped(what[0].upper() + what[1:]), ""]
    if rest and not PART.match(rest[0][0]):
        made += argument_lines(rest.pop(0))
    for paragraph in rest:
        part = PART.match(paragraph[0])
        if part:
            first = paragraph[0].replace(part[1], " " * len(part[1]), 1)
            made += ["@par " + part[1], *verbatim([first, *paragraph[1:]])]
        else:
            made += verbatim(paragraph)
    return made


def documentation(lines):
    return "/**\n" + "".join(" * %s\n" % line for line in lines) + " */\n"


def c_header(text):
    comment = re.compile(r"/\*\n((?: \*.*\n)+?) \*/\n((?:KESTRO_API[^;]*;\n)*)")

    def replaced(match):
        lines = [line[2:] for line in match[1].splitlines()]
        if not match[2]:
            file, brief = lines[0].strip().split(" - ", 1)
            return documentation(["@mainpage " + escaped(brief), *verbatim(lines[1:])]) + \
                documentation(["@file " + file, "@brief " + escaped(brief)])
        made = documentation(function_comment(lines))
        return "".join(made + declaration + ";\n" for declaration in match[2].split(";\n")[:-1])

    return comment.sub(replaced, text)


def cpp_header(text):
    lines = []
    for line in text.splitlines():
        indent, code = re.fullmatch(r"( *)(.*)", line).groups()
        trailing = re.fullmatch(r"(.*[;,{}].*?)  ?// (.*)", code)
        if code.startswith("// ---"):
            line = ""
        elif code.startswith("//"):
            line = indent + "///" + escaped(code[2:])
        elif trailing:
            line = indent + trailing[1] + " ///< " + escaped(trailing[2])
        lines.append(line)
    # The comment at the top is the file's.
    return "\n".join(["/// @file", "///", *lines]) + "\n"


if __name__ == "__main__":
    with open(sys.argv[1], encoding="utf-8") as header:
        content = header.read()
    print((c_header if sys.argv[1].endswith(".h") else cpp_header)(content), end="")
