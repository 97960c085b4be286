"""Makes the NuGet package out of a staged package for Windows.

    pack.py STAGED PACKAGE.nupkg VERSION

One commit gives the same bytes: sorted names and the time of SOURCE_DATE_EPOCH.
"""

import os
import sys
import time
import xml.sax.saxutils
import zipfile

HERE = os.path.dirname(os.path.abspath(__file__))

NUSPEC = """<?xml version="1.0" encoding="utf-8"?>
<package xmlns="http://schemas.microsoft.com/packaging/2013/05/nuspec.xsd">
  <metadata>
    <id>Kestro</id>
    <version>{version}</version>
    <title>Kestro</title>
    <authors>The Kestro developers</authors>
    <license type="expression">MIT</license>
    <readme>README.md</readme>
    <description>Services offline Windows images and disks in your own process: WIM images, their drivers, raw disks.</description>
    <tags>native wim dism driver disk deployment</tags>
    <contentFiles>
      <files include="cs/any/Kestro.cs" buildAction="Compile" />
    </contentFiles>
  </metadata>
</package>
"""

RELATIONSHIPS = """<?xml version="1.0" encoding="utf-8"?>
<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">
  <Relationship Type="http://schemas.microsoft.com/packaging/2010/07/manifest" Target="/Kestro.nuspec" Id="R1" />
</Relationships>
"""


def content_types(names):
    """Each ending is named once; what has none is named itself."""
    endings = sorted({name.rpartition(".")[2] for name in names if "." in os.path.basename(name)} | {"rels"})
    whole = sorted(name for name in names if "." not in os.path.basename(name))
    kinds = {"rels": "application/vnd.openxmlformats-package.relationships+xml"}
    lines = ['  <Default Extension="%s" ContentType="%s" />' % (ending, kinds.get(ending, "application/octet"))
             for ending in endings]
    lines += ['  <Override PartName="/%s" ContentType="application/octet" />' % name for name in whole]
    return ('<?xml version="1.0" encoding="utf-8"?>\n'
            '<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">\n'
            + "\n".join(lines) + "\n</Types>\n")


def contents(staged, version):
    """{name in the package: bytes}"""
    def file(*parts):
        with open(os.path.join(*parts), "rb") as opened:
            return opened.read()

    found = {
        "Kestro.nuspec": NUSPEC.format(version=xml.sax.saxutils.escape(version)).encode(),
        "_rels/.rels": RELATIONSHIPS.encode(),
        "README.md": file(HERE, "README.md"),
        "LICENSE": file(staged, "LICENSE"),
        "LICENCES.md": file(staged, "LICENCES.md"),
        "build/native/Kestro.targets": file(HERE, "Kestro.targets"),
        "build/native/lib/x64/Kestro.lib": file(staged, "lib", "Kestro.lib"),
        "contentFiles/cs/any/Kestro.cs": file(staged, "examples", "csharp", "Kestro.cs"),
        "runtimes/win-x64/native/Kestro.dll": file(staged, "bin", "Kestro.dll"),
    }
    for folder, into in (("include", "build/native/include"), ("licences", "licences")):
        for root, _, names in os.walk(os.path.join(staged, folder)):
            for name in names:
                path = os.path.join(root, name)
                found[into + "/" + os.path.relpath(path, os.path.join(staged, folder))] = file(path)
    found["[Content_Types].xml"] = content_types(found).encode()
    return found


def main(staged, package, version):
    made = time.gmtime(int(os.environ["SOURCE_DATE_EPOCH"]))[:6]
    with zipfile.ZipFile(package, "w", zipfile.ZIP_DEFLATED) as archive:
        for name, data in sorted(contents(staged, version).items()):
            entry = zipfile.ZipInfo(name, made)
            entry.compress_type = zipfile.ZIP_DEFLATED
            entry.external_attr = 0o644 << 16
            archive.writestr(entry, data)


if __name__ == "__main__":
    main(*sys.argv[1:])
