#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Writes what the Python module knows of the public headers: constants, records, and the types of the functions.

Usage: generate.py INCLUDE-FOLDER SONAME VERSION MODULE CHECK COMPILER [OPTION...]

MODULE is the Python source that is written. CHECK is a C source that compiles only where the compiler of the target finds the
same constants and layouts. The compiler with its options only preprocesses the headers here.
"""
import ast
import os
import re
import subprocess
import sys

SCALARS = {
    "char": ("c_char", 1), "int": ("c_int", 4), "unsigned int": ("c_uint", 4), "float": ("c_float", 4),
    "unsigned long": ("c_ulong", None), "size_t": ("c_size_t", None), "uintptr_t": ("c_size_t", None),
    "intptr_t": ("c_ssize_t", None), "mode_t": ("c_uint", 4),
    **{f"{sign}int{bits}_t": (f"c_{sign}int{bits}", bits // 8) for sign in ("", "u") for bits in (8, 16, 32, 64)},
}
# What the headers take from the C library: their layouts belong to it.
OF_THE_C_LIBRARY = ("pthread_mutex_t",)
POINTER_SIZES = (4, 8)


class Unreadable(Exception):
    """A declaration has a form that this script does not know."""


def preprocessed(compiler, include):
    """Returns the declarations of the public headers, and their macros as (name, text)."""
    header = os.path.join(include, "kelo_utils", "kelo_utils.h")
    command = [*compiler, "-std=c99", "-E", "-dD", "-I", include, "-x", "c", header]
    text = subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout.decode()
    ours, lines, macros = False, [], []
    for line in text.splitlines():
        marker = re.match(r'#(?:line)? \d+ "(.*?)"', line)
        if marker:
            ours = os.path.basename(os.path.dirname(marker[1])) == "kelo_utils"
            continue
        macro = re.match(r"#define (\w+) (.+)", line)
        if ours and macro:
            macros.append((macro[1], macro[2].strip()))
        elif ours and not line.startswith("#"):
            lines.append(line)
    return "\n".join(lines), macros


def without_attributes(text):
    while True:
        start = text.find("__attribute__")
        if start < 0:
            return re.sub(r"_Pragma\s*\([^)]*\)", "", text)
        end, depth = text.index("(", start), 0
        while True:
            depth += {"(": 1, ")": -1}.get(text[end], 0)
            end += 1
            if depth == 0:
                break
        text = text[:start] + text[end:]


def statements(text):
    """Splits declarations. The body of a function ends one, too."""
    depth, start = 0, 0
    for position, character in enumerate(text):
        depth += {"{": 1, "}": -1}.get(character, 0)
        whole = text[start:position + 1]
        if depth == 0 and (character == ";" or (character == "}" and re.match(r"\s*static ", whole))):
            yield " ".join(whole.split()).replace(" ;", ";")
            start = position + 1


def number(expression, known):
    """Returns the value of a constant expression of C, or None."""
    plain = re.sub(r"\b(0[xX][0-9a-fA-F]+|\d+)[uUlL]+\b", r"\1", expression)
    try:
        return evaluated(ast.parse(plain, mode="eval").body, known)
    except (SyntaxError, Unreadable):
        return None


def evaluated(node, known):
    if isinstance(node, ast.Constant) and isinstance(node.value, int):
        return node.value
    if isinstance(node, ast.Name) and isinstance(known.get(node.id), int):
        return known[node.id]
    if isinstance(node, ast.UnaryOp) and isinstance(node.op, ast.USub):
        return -evaluated(node.operand, known)
    if isinstance(node, ast.BinOp):
        left, right = evaluated(node.left, known), evaluated(node.right, known)
        for kind, result in ((ast.Add, left + right), (ast.Sub, left - right), (ast.Mult, left * right)):
            if isinstance(node.op, kind):
                return result
        if isinstance(node.op, ast.LShift):
            return left << right
    raise Unreadable(ast.dump(node))


def split_arguments(text):
    """Splits at the commas outside of parentheses."""
    parts, depth, start = [], 0, 0
    for position, character in enumerate(text):
        depth += {"(": 1, ")": -1}.get(character, 0)
        if character == "," and depth == 0:
            parts.append(text[start:position].strip())
            start = position + 1
    last = text[start:].strip()
    return parts + [last] if last and last != "void" else parts


class Headers:
    """Everything that the declarations say."""

    def __init__(self):
        self.constants, self.enums, self.records = {}, {}, {}
        self.callbacks, self.functions, self.aliases, self.left_out = {}, {}, {}, set()

    def read(self, text, macros):
        for statement in statements(without_attributes(text)):
            self.read_statement(statement)
        for name, value in macros:
            quoted = re.fullmatch(r'"([^"\\]*)"', value)
            found = quoted[1] if quoted else number(value, self.constants)
            if found is not None:
                self.constants[name] = found

    def read_statement(self, text):
        enum = re.fullmatch(r"(?:typedef )?enum ?(\w*) ?\{(.*)\} ?\w*;", text)
        record = re.fullmatch(r"typedef (struct|union) (\w+) \{(.*)\} (\w+);", text)
        callback = re.fullmatch(r"typedef (.+?) ?\(\*(\w+)\)\((.*)\);", text)
        alias = re.fullmatch(r"typedef ([\w ]+) (\w+);", text)
        function = re.fullmatch(r"(.+?[ *])(\w+)\((.*)\);", text)
        if alias:
            self.aliases[alias[2]] = alias[1]
        elif enum:
            self.read_enum(enum[1], enum[2])
        elif record:
            self.read_record(*record.groups())
        elif callback:
            self.callbacks[callback[2]] = self.signature(callback[1], callback[3])
        elif re.match(r"extern |static |(struct|union) \w+;", text):
            pass
        elif function and "..." not in function[3]:
            self.functions[function[2]] = self.signature(function[1], function[3])
        elif not function:
            raise Unreadable(text)

    def read_enum(self, tag, body):
        value = -1
        for enumerator in split_arguments(body):
            name, _, expression = (part.strip() for part in enumerator.partition("="))
            value = number(expression, self.constants) if expression else value + 1
            if value is None:
                raise Unreadable(enumerator)
            self.constants[name] = value
            if tag:
                self.enums.setdefault(tag, {})[value] = name

    def read_record(self, kind, tag, body, name):
        fields = [self.field(text, (tag, name)) for text in filter(None, (part.strip() for part in body.split(";")))]
        if None in fields:
            self.left_out.add(name)
        else:
            self.records[name] = (kind, fields)

    def field(self, text, own_names):
        """Returns name, type and number of elements, or None for a type of the C library."""
        if re.search(r"\(\*(\w+)\)", text):
            return re.search(r"\(\*(\w+)\)", text)[1], "pointer", None
        match = re.fullmatch(r"(.+?[ *])(\w+)(?:\[(.+)\])?", text)
        kind = re.sub(r"\b(const|struct|union)\b", "", match[1]).strip()
        if kind in OF_THE_C_LIBRARY or kind in self.left_out:
            return None
        if kind.endswith("*"):
            kind = "pointer"
        elif kind not in SCALARS and kind not in self.records:
            raise Unreadable(f"{text} in {own_names}")
        return match[2], kind, number(match[3], self.constants) if match[3] else None

    def signature(self, result, arguments):
        return self.python_type(result), [self.python_type(self.without_name(text)) for text in split_arguments(arguments)]

    @staticmethod
    def without_name(text):
        if "(*" in text or "[" in text:
            return "void*"
        return re.sub(r"(?<=[ *])\w+$", "", text) if re.search(r"[ *]\w+$", text) and text not in SCALARS else text

    def python_type(self, text):
        plain = re.sub(r"\b(struct|union)\b", "", text).strip()
        if plain == "void":
            return "None"
        if re.fullmatch(r"const char ?\*", plain):
            return "ctypes.c_char_p"
        if plain.endswith("*"):
            return "ctypes.c_void_p"
        plain = plain.replace("const ", "")
        plain = self.aliases.get(plain, plain)
        if plain in SCALARS:
            return "ctypes." + SCALARS[plain][0]
        if plain in self.records or plain in self.callbacks:
            return plain
        raise Unreadable(text)

    def size_of(self, kind, pointer):
        """Returns size and alignment of a type where pointers have `pointer` bytes."""
        if kind in self.records:
            size, alignment, _ = self.layout(kind, pointer)
            return size, alignment
        size = pointer if kind == "pointer" else SCALARS[kind][1] or pointer
        return size, size

    def layout(self, name, pointer):
        """Returns size, alignment and the offsets of a record, as the C compilers of Linux lay it out."""
        kind, fields = self.records[name]
        end, widest, offsets = 0, 1, {}
        for field, field_kind, count in fields:
            size, alignment = self.size_of(field_kind, pointer)
            start = 0 if kind == "union" else -(-end // alignment) * alignment
            offsets[field] = start
            end = max(end, start + size * (count or 1))
            widest = max(widest, alignment)
        return -(-end // widest) * widest, widest, offsets


def module_text(headers, soname, version):
    lines = [
        "# SPDX-License-Identifier: MIT",
        '"""Constants, records and functions of the C library. This file is made from its headers by generate.py."""',
        "import ctypes", "", f"LIBRARY = {soname!r}", f"VERSION = {version!r}", "", "# Constants"]
    lines += [f"{name} = {value!r}" for name, value in headers.constants.items()]
    lines += ["", "# The constants are public", "__all__ = ["]
    lines += [f"    {name!r}," for name in headers.constants]
    lines += ["]", "", "# Names of the values of enumerations", "ENUMS = {"]
    lines += [f"    {tag!r}: {names!r}," for tag, names in headers.enums.items()]
    lines += ["}", "", "# Records"]
    for name, (kind, fields) in headers.records.items():
        lines += ["", "", f"class {name}(ctypes.{kind.title().replace('Struct', 'Structure')}):", "    _fields_ = ["]
        for field, field_kind, count in fields:
            text = field_kind if field_kind in headers.records else \
                "ctypes.c_void_p" if field_kind == "pointer" else "ctypes." + SCALARS[field_kind][0]
            lines.append(f"        ({field!r}, {text}{f' * {count}' if count else ''}),")
        lines.append("    ]")
    lines += ["", "", "# Size of each record and offsets of its fields, by the size of a pointer", "LAYOUTS = {"]
    for name in headers.records:
        both = {size: (headers.layout(name, size)[0], headers.layout(name, size)[2]) for size in POINTER_SIZES}
        lines.append(f"    {name}: {both!r},")
    lines += ["}", "", "# Callbacks"]
    for name, (result, arguments) in headers.callbacks.items():
        lines.append(f"{name} = ctypes.CFUNCTYPE({', '.join([result] + arguments)})")
    lines += ["", "# Results and arguments of the functions", "FUNCTIONS = {"]
    for name, (result, arguments) in headers.functions.items():
        lines.append(f"    {name!r}: ({result}, [{', '.join(arguments)}]),")
    return "\n".join(lines + ["}", ""])


def check_text(headers):
    lines = ["/* SPDX-License-Identifier: MIT */",
             "/* What the Python module believes of the headers. This file is made by python/generate.py. */",
             "#include <stddef.h>", '#include "kelo_utils/kelo_utils.h"',
             "#define BY_POINTER(four, eight) (sizeof(void*) == 4 ? (four) : (eight))"]
    for name, value in headers.constants.items():
        if isinstance(value, int):
            lines.append(f'_Static_assert((long long)({name}) == {value}LL, "{name}");')
    for name in headers.records:
        (size_4, _, offsets_4), (size_8, _, offsets_8) = (headers.layout(name, size) for size in POINTER_SIZES)
        lines.append(f'_Static_assert(sizeof({name}) == BY_POINTER({size_4}, {size_8}), "{name}");')
        for field, offset in offsets_4.items():
            lines.append(f"_Static_assert(offsetof({name}, {field}) == BY_POINTER({offset}, {offsets_8[field]}), "
                         f'"{name}.{field}");')
    return "\n".join(lines + [""])


def main(arguments):
    include, soname, version, module, check, *compiler = arguments
    headers = Headers()
    headers.read(*preprocessed(compiler, include))
    for path, text in ((module, module_text(headers, soname, version)), (check, check_text(headers))):
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)


if __name__ == "__main__":
    main(sys.argv[1:])
