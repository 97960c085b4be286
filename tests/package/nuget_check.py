"""The NuGet package is laid out as NuGet documents it. Run by try.sh:

    nuget_check.py PACKAGE.nupkg UNPACKED-ZIP

NuGet imports build/native/<id>.targets into C++ projects, takes files of runtimes/<rid>/native for that
platform, and compiles contentFiles that the manifest names; the package itself is an Open Packaging file, in
which every part has a content type and a relationship leads to the manifest.
"""

import os
import sys
import unittest
import xml.etree.ElementTree as xml
import zipfile

PACKAGE, UNPACKED = sys.argv[1:3]
NUSPEC = "{http://schemas.microsoft.com/packaging/2013/05/nuspec.xsd}"
TYPES = "{http://schemas.openxmlformats.org/package/2006/content-types}"
MSBUILD = "{http://schemas.microsoft.com/developer/msbuild/2003}"


def unpacked(*parts):
    with open(os.path.join(UNPACKED, *parts), "rb") as file:
        return file.read()


class NuGet(unittest.TestCase):
    def setUp(self):
        self.archive = zipfile.ZipFile(PACKAGE)
        self.addCleanup(self.archive.close)
        self.names = self.archive.namelist()

    def tree(self, name):
        return xml.fromstring(self.archive.read(name))

    def test_the_manifest_names_the_package_as_the_file_does(self):
        relationship = self.tree("_rels/.rels")[0]
        self.assertEqual(relationship.get("Type"),
                         "http://schemas.microsoft.com/packaging/2010/07/manifest")
        manifest = self.tree(relationship.get("Target").lstrip("/"))
        said = {field: manifest.findtext(f"{NUSPEC}metadata/{NUSPEC}{field}")
                for field in ("id", "version", "authors", "description", "license", "readme", "tags")}
        self.assertNotIn(None, said.values(), said)
        self.assertEqual("%(id)s.%(version)s.nupkg" % said, os.path.basename(PACKAGE))
        self.assertIn(said["readme"], self.names)
        self.assertIn("native", said["tags"].split())

    def test_every_part_has_a_content_type(self):
        types = self.tree("[Content_Types].xml")
        endings = {entry.get("Extension") for entry in types.iter(TYPES + "Default")}
        whole = {entry.get("PartName") for entry in types.iter(TYPES + "Override")}
        for name in self.names:
            if name != "[Content_Types].xml":
                self.assertTrue(name.rpartition(".")[2] in endings or "/" + name in whole, name)

    def test_the_targets_have_the_name_that_is_imported_and_lead_to_files_that_are_there(self):
        targets = self.tree("build/native/Kestro.targets")
        here = "build/native/"
        texts = [element.text or "" for element in targets.iter()]
        texts += [element.get("Include", "") for element in targets.iter(MSBUILD + "ReferenceCopyLocalPaths")]
        found = set()
        for text in texts:
            for part in text.split(";"):
                if part.startswith("$(MSBuildThisFileDirectory)"):
                    path = part.removeprefix("$(MSBuildThisFileDirectory)").replace("\\", "/")
                    path = os.path.normpath(here + path)
                    self.assertTrue(any(name == path or name.startswith(path + "/") for name in self.names), path)
                    found.add(path)
        self.assertEqual(found, {"build/native/include", "build/native/lib/x64",
                                 "runtimes/win-x64/native/Kestro.dll"})
        self.assertIn("build/native/lib/x64/Kestro.lib", self.names)

    def test_the_content_that_the_manifest_names_is_there(self):
        for entry in self.tree("Kestro.nuspec").iter(NUSPEC + "files"):
            self.assertEqual(entry.get("buildAction"), "Compile")
            self.assertIn("contentFiles/" + entry.get("include"), self.names)

    def test_the_files_are_those_of_the_package_for_windows(self):
        for name, parts in {
            "runtimes/win-x64/native/Kestro.dll": ("bin", "Kestro.dll"),
            "build/native/lib/x64/Kestro.lib": ("lib", "Kestro.lib"),
            "build/native/include/kestro.h": ("include", "kestro.h"),
            "build/native/include/kestro.hpp": ("include", "kestro.hpp"),
            "contentFiles/cs/any/Kestro.cs": ("examples", "csharp", "Kestro.cs"),
        }.items():
            self.assertEqual(self.archive.read(name), unpacked(*parts), name)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
