"""Edits an image file without compression: reads the tree of its first image, lets it be changed into what no
capture makes, and writes it back with the right hash."""

import hashlib
import struct

HEADER_OF_TABLE = 48  # in the file's header: where the table of resources lies
ENTRY, FIXED, IS_METADATA = 50, 102, 2


def aligned(data):
    return data + bytes(-len(data) % 8)


class Entry:
    """A file or directory. `fixed` is what stands before the names, without its length."""

    def __init__(self, fixed, name, extra):
        self.fixed, self.name, self.extra = bytearray(fixed), name, extra
        self.children = None

    def child(self, name):
        return next(child for child in self.children if child.name == name)

    def set_security(self, number):
        struct.pack_into("<i", self.fixed, 4, number)

    def encoded(self, children_at):
        name = self.name.encode("utf-16-le")
        struct.pack_into("<Q", self.fixed, 8, children_at)
        struct.pack_into("<HHH", self.fixed, 88, 0, 0, len(name))
        body = bytes(8) + bytes(self.fixed) + (name + bytes(2) if name else b"")
        body = aligned(body) + self.extra
        return struct.pack("<Q", len(body)) + body[8:]


class Wim:
    def __init__(self, path):
        with open(path, "rb") as file:
            self.data = bytearray(file.read())
        offset, size = struct.unpack_from("<QQ", self.data, HEADER_OF_TABLE + 8)
        self.entries = range(offset, offset + size, ENTRY)
        self.metadata_entry = next(at for at in self.entries if self.data[at + 7] & IS_METADATA)
        self.security = []
        metadata = self.resource(self.metadata_entry)
        self.root = self._read(metadata, struct.unpack_from("<I", metadata)[0])[0]

    def resource(self, entry):
        size, offset = struct.unpack_from("<QQ", self.data, entry)
        return bytes(self.data[offset:offset + (size & ((1 << 56) - 1))])

    def content_entry(self, content):
        """The table's entry of a file with this content."""
        wanted = hashlib.sha1(content).digest()
        return next(at for at in self.entries if bytes(self.data[at + 30:at + 50]) == wanted)

    def _read(self, metadata, at):
        """The entries that follow one another from there."""
        entries = []
        while True:
            length = struct.unpack_from("<Q", metadata, at)[0]
            if length <= 8:
                return entries
            fixed = metadata[at + 8:at + FIXED]
            streams, short, name = struct.unpack_from("<HHH", fixed, 88)
            assert streams == 0 and short == 0, "captures on this machine have neither"
            end = at + FIXED + (name + 2 if name else 0)
            entry = Entry(fixed, metadata[at + FIXED:at + FIXED + name].decode("utf-16-le"),
                          metadata[end + -end % 8:at + length])
            children_at = struct.unpack_from("<Q", fixed, 8)[0]
            if children_at:
                entry.children = self._read(metadata, children_at)
            entries.append(entry)
            at += length + -length % 8

    def _security(self):
        sizes = [len(descriptor) for descriptor in self.security]
        total = 8 + 8 * len(sizes) + sum(sizes)
        return aligned(struct.pack("<II%dQ" % len(sizes), total, len(sizes), *sizes)
                       + b"".join(self.security))

    def _encoded(self):
        """The tree, level by level. A directory that is met again points to where its children are."""
        places, levels = {}, [[self.root]]
        at = len(self._security())
        for level in levels:
            places[id(level)] = at
            at += sum(len(aligned(entry.encoded(0))) for entry in level) + 8
            levels += [entry.children for entry in level
                       if entry.children is not None and not any(entry.children is known
                                                                 for known in levels)]
        body = self._security()
        for level in levels:
            for entry in level:
                body += aligned(entry.encoded(0 if entry.children is None
                                              else places[id(entry.children)]))
            body += bytes(8)
        return body

    def save(self, path):
        """The tree goes to the end of the file; where it was stays unused."""
        metadata = self._encoded()
        at = self.metadata_entry
        struct.pack_into("<QQQ", self.data, at, len(metadata) | IS_METADATA << 56, len(self.data),
                         len(metadata))
        self.data[at + 30:at + 50] = hashlib.sha1(metadata).digest()
        self.data += metadata
        self.write(path)

    def write(self, path):
        with open(path, "wb") as file:
            file.write(self.data)
