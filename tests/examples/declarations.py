"""The functions that the header and the C# example declare, as plain tuples."""

import re


def _words(text):
    return " ".join(text.replace("*", " * ").split())


def header_functions(text):
    """{name: (result, [(type, parameter), ...])} of a C header."""
    text = re.sub(r"/\*.*?\*/", "", text, flags=re.S)
    functions = {}
    pattern = r"KESTRO_API\s+([\w\s*]+?)\s*KESTRO_CALL\s+(\w+)\s*\(([^)]*)\)\s*(?:KESTRO_NOEXCEPT)?\s*;"
    for result, name, parameters in re.findall(pattern, text):
        split = [re.fullmatch(r"(.*?)(\w+)", part.strip(), re.S) for part in parameters.split(",")]
        functions[name] = (_words(result), [(_words(part[1]), part[2]) for part in split])
    return functions


def csharp_functions(text):
    """{name: (result, [(type with its marshalling, parameter), ...], attribute)} of P/Invoke
    declarations."""
    text = re.sub(r"//[^\n]*", "", text)
    functions = {}
    pattern = (r"\[DllImport\(([^\]]*)\)\]\s*public static extern (\w+) (\w+)\((.*?)\);")
    for attribute, result, name, parameters in re.findall(pattern, text, flags=re.S):
        found = re.findall(r"(?:\[MarshalAs\(([^\]]*?)\)\]\s*)?([\w\[\]]+)\s+(\w+)(?:,|$)",
                           parameters.strip(), flags=re.S)
        functions[name] = (result, [(_words(kind + (" as " + how if how else "")), parameter)
                                    for how, kind, parameter in found], _words(attribute))
    return functions
