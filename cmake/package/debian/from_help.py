"""Makes the manual page and the completion for bash out of what kestro says of itself:
from_help.py man|bash VERSION DATE KESTRO...  KESTRO... is the command to ask."""

import re
import subprocess
import sys

HANG = 120


class Help:
    """One command's help: its parts, and the commands below it."""

    def __init__(self, ask, words):
        done = subprocess.run([*ask, "help", *words], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              timeout=HANG, text=True, check=True)
        self.words = words
        lines = [line.rstrip() for line in done.stdout.splitlines()]
        self.title = lines[0]
        self.usage = next(line for line in lines if line.startswith("Usage: "))[len("Usage: "):]
        self.parts = {}
        part, rest = None, []
        for line in lines[lines.index("Usage: " + self.usage) + 1:]:
            heading = re.fullmatch(r"([A-Z]\w+):|(\[Option Group: \w+\])", line)
            if heading:
                part = self.parts.setdefault("Options" if heading[2] else heading[1], [])
                in_group = bool(heading[2])
            elif part is not None and line.startswith(" " * 20):
                part[-1][1] += " " + line.strip()
            elif part is not None and line.startswith("  "):
                names, _, text = re.sub("   *", "\t", line.strip()).partition("\t")
                if names.startswith("-") or not in_group:
                    part.append([names, text])
            elif line:
                part = None
                rest.append(line)
        self.footer = rest
        self.below = [Help(ask, [*words, name]) for name, _ in self.parts.get("Subcommands", [])]

    def options(self, with_value=False):
        """Their names; with_value: of those that take one."""
        names = [name.split() for part in self.parts.values() for name, _ in part if name.startswith("-")]
        return {one for words in names if len(words) > 1 or not with_value for one in words[0].split(",")}

    def all(self):
        yield self
        for command in self.below:
            yield from command.all()


# --- the manual page -------------------------------------------------------------------------------

def roff(text):
    text = text.replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq")
    return "\\&" + text if text.startswith(".") else text


def items(part):
    lines = []
    for names, text in part:
        lines += [".TP", ".B " + roff(names.replace(" REQUIRED", "")), roff(text or "-")]
    return lines


def command_lines(command, top):
    lines = [".SS " + roff("kestro " + " ".join(command.words)), roff(command.title) + ".", ".PP",
             ".B " + roff(command.usage)]
    for part in command.parts.values():
        lines += items([item for item in part if not item[0].startswith(("-h,", "--help-all"))])
    if command.footer != top.footer:
        lines += [".PP", ".nf", *map(roff, command.footer), ".fi"]
    return lines


def man_page(top, version, date):
    lines = ['.TH KESTRO 1 "%s" "Kestro %s" "User Commands"' % (date, version),
             ".SH NAME", roff("kestro - services offline Windows images and disks"),
             ".SH SYNOPSIS", ".B kestro", roff("[OPTIONS] COMMAND ..."),
             ".SH DESCRIPTION", roff(top.title),
             roff("Paths are those of this system. Everything runs under Wine, which starts for a command and ends "
                  "by itself; the first command of a user makes the Wine prefix, which takes half a minute."),
             roff("As root, where there is /dev/fuse, a mount costs no copy; for others an image is extracted, "
                  "which takes the time and the space of that."),
             ".SH OPTIONS", *items(top.parts["Options"]), ".SH COMMANDS"]
    for command in top.all():
        if command is not top and not command.below:
            lines += command_lines(command, top)
    lines += [".SH EXIT STATUS", ".nf", *map(roff, top.footer), ".fi",
              ".SH ENVIRONMENT", ".TP", ".B KESTRO_PREFIX",
              roff("the Wine prefix to use, in place of the one below FILES"),
              ".TP", ".B KESTRO_MOUNT", roff("lazy: mount without a copy or not at all; extract: always copy"),
              ".SH FILES", ".TP", ".I " + roff("~/.local/share/kestro/wine"),
              roff("the Wine prefix; below XDG_DATA_HOME where that is set. It can be removed when nothing is "
                   "mounted."),
              ".TP", ".I " + roff("drive_c/ProgramData/Kestro/disks.ini"),
              roff("in the prefix: the disk images that the disk commands work on"),
              ".TP", ".I /usr/share/doc/kestro/docs", "the whole documentation"]
    return "\n".join(lines) + "\n"


# --- bash ------------------------------------------------------------------------------------------

BASH = """\
# bash completion for kestro(1); made from what kestro says of itself
_kestro()
{
    local current=${COMP_WORDS[COMP_CWORD]} path="" words word i
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        if [[ " $(_kestro_values "$path") $(_kestro_values "") " == *" $word "* ]]; then
            ((++i)) # and its value
        elif [[ $word != -* && " $(_kestro_commands "$path") " == *" $word "* ]]; then
            path+=${path:+ }$word
        fi
    done
    COMPREPLY=()
    if ((i > COMP_CWORD)); then
        return # a value: files
    fi
    if [[ $current == -* ]]; then
        words="$(_kestro_options "$path") $(_kestro_options "")"
    else
        words=$(_kestro_commands "$path")
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}
"""


def table(name, rows):
    lines = [name + "()", "{", '    case "$1" in']
    lines += ["    %s) echo %s ;;" % ('"%s"' % path, "'%s'" % " ".join(words)) for path, words in rows if words]
    return "\n".join([*lines, "    esac", "}", ""])


def completion(top):
    commands, options, values = [], [], []
    for command in top.all():
        path = " ".join(command.words)
        below = top.below if path == "help" else command.below
        commands.append((path, [one.words[-1] for one in below]))
        of_all = top.options() if command is not top else set()
        options.append((path, sorted(command.options() - of_all)))
        values.append((path, sorted(command.options(with_value=True) - of_all)))
    return (BASH + table("_kestro_commands", commands) + table("_kestro_options", options) +
            table("_kestro_values", values) + "complete -o bashdefault -o default -F _kestro kestro\n")


if __name__ == "__main__":
    KIND, VERSION, DATE, *ASK = sys.argv[1:]
    TOP = Help(ASK, [])
    sys.stdout.write(man_page(TOP, VERSION, DATE) if KIND == "man" else completion(TOP))
