"""Every fault that the operators below make of a source file: found in what the compiler has parsed, so that
neither a name nor a line break matters."""

from dataclasses import dataclass

from clang.cindex import CursorKind, Index

WORDS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "==", "&&": "||", "||": "&&",
         "+": "-", "++": "--"}
CONDITIONS = (CursorKind.IF_STMT, CursorKind.WHILE_STMT, CursorKind.CONDITIONAL_OPERATOR)
CALLS = (CursorKind.CALL_EXPR,)


@dataclass(frozen=True)
class Fault:
    file: str
    line: int
    start: int  # of the bytes that it replaces
    end: int
    kind: str
    text: bytes  # what stands there instead


class Finder:
    """The faults of one source file and of the headers below a folder that it includes."""

    def __init__(self, path, folder, arguments):
        self.folder = str(folder)
        self.unit = Index.create().parse(str(path), args=arguments)
        wrong = [d for d in self.unit.diagnostics if d.severity >= 3]
        if wrong:
            raise RuntimeError("%s: %s" % (path, wrong[0]))

    def all(self):
        found = set()
        for cursor in self.unit.cursor.get_children():
            if cursor.location.file and cursor.location.file.name.startswith(self.folder):
                self.path = cursor.location.file.name
                with open(self.path, "rb") as file:
                    self.source = file.read()
                faults = []
                self._visit(cursor, None, faults)
                found.update(faults)
        return found

    def _fault(self, kind, start, end, text):
        line = self.source.count(b"\n", 0, start) + 1
        return Fault(self.path, line, start, end, kind, text)

    def _replaced(self, kind, extent, change):
        start, end = extent.start.offset, extent.end.offset
        return self._fault(kind, start, end, change(self.source[start:end]))

    def _visit(self, cursor, parent, found):
        kind = cursor.kind
        if kind == CursorKind.STATIC_ASSERT:
            return
        children = list(cursor.get_children())
        if kind in CONDITIONS and children:
            condition = children[0]
            if condition.kind != CursorKind.DECL_STMT and condition.kind != CursorKind.VAR_DECL:
                found.append(self._replaced("condition turned round", condition.extent,
                                            lambda text: b"!(" + text + b")"))
        if kind in CALLS and parent is not None and parent.kind == CursorKind.COMPOUND_STMT:
            found.append(self._replaced("call left out", cursor.extent, lambda text: b"(void)0"))
        if kind == CursorKind.BINARY_OPERATOR and len(children) == 2:
            self._operator(children, found)
        if kind == CursorKind.INTEGER_LITERAL and not self._is_extent(parent) and self._is_one_word(cursor):
            found.append(self._replaced("another number", cursor.extent, lambda text: b"(" + text + b" + 1)"))
        if kind == CursorKind.STRING_LITERAL:
            found.append(self._replaced("another text", cursor.extent, lambda text: text[:-1] + b"x\""))
        if kind == CursorKind.CXX_BOOL_LITERAL_EXPR:
            found.append(self._replaced("the other truth", cursor.extent, lambda text: b"!" + text))
        if kind == CursorKind.DECL_REF_EXPR and cursor.referenced is not None and \
                cursor.referenced.kind == CursorKind.ENUM_CONSTANT_DECL:
            self._enumerator(cursor, found)
        for child in children:
            self._visit(child, cursor, found)

    @staticmethod
    def _is_extent(parent):
        return parent is not None and parent.kind in (CursorKind.VAR_DECL, CursorKind.FIELD_DECL) and \
            parent.type.get_array_size() >= 0

    def _is_one_word(self, cursor):
        """Not a macro with arguments, whose numbers stand elsewhere."""
        text = self.source[cursor.extent.start.offset:cursor.extent.end.offset]
        return text != b"" and b"(" not in text

    def _operator(self, children, found):
        """The operator stands between its two sides."""
        start, end = children[0].extent.end.offset, children[1].extent.start.offset
        word = self.source[start:end].decode().strip()
        if word in WORDS:
            at = start + self.source[start:end].index(word.encode())
            found.append(self._fault("%s for %s" % (WORDS[word], word), at, at + len(word),
                                     WORDS[word].encode()))

    def _enumerator(self, cursor, found):
        """The next constant; only of the library's own enumerations."""
        names = [c.spelling for c in cursor.referenced.semantic_parent.get_children()]
        if cursor.referenced.semantic_parent.location.file.name.endswith(".h") and len(names) > 1 and \
                "library" in cursor.referenced.semantic_parent.get_usr():
            following = names[(names.index(cursor.spelling) + 1) % len(names)]
            found.append(self._replaced("%s for %s" % (following, cursor.spelling), cursor.extent,
                                        lambda text: text[:-len(cursor.spelling)] + following.encode()))
