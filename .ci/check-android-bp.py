#!/usr/bin/env python3
"""Checks the modules Android.bp names against the platform modules it may use, without a
platform tree: each dependency must be a module the file defines or one listed in
.ci/platform-modules.json, of the kind its property takes (header_libs: header libraries,
shared_libs: shared libraries, static_libs: static libraries, defaults: cc_defaults), and vendor
modules may use only what the platform makes available to vendor modules.

    check-android-bp.py [--modules LIST.json] [ANDROID_BP]

Exit 0 and one summary line when every module is right; exit 1 with one line per mistake
("FILE:LINE: module "NAME": ..."); exit 2 when a file cannot be read or parsed.
"""

import argparse
import json
import os
import re
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
DEFAULT_MODULES = os.path.join(HERE, "platform-modules.json")
DEFAULT_BP = os.path.join(os.path.dirname(HERE), "Android.bp")

HEADER_KINDS = {"cc_library_headers"}
SHARED_KINDS = {"cc_library", "cc_library_shared"}
STATIC_KINDS = {"cc_library", "cc_library_static"}
DEFAULTS_KINDS = {"cc_defaults"}

# Property -> (the kinds it takes, what to call them, the property that must also name the module).
REFERENCES = {
    "header_libs": (HEADER_KINDS, "a header library (cc_library_headers)", None),
    "export_header_lib_headers": (
        HEADER_KINDS, "a header library (cc_library_headers)", "header_libs"),
    "shared_libs": (SHARED_KINDS, "a shared library (cc_library or cc_library_shared)", None),
    "export_shared_lib_headers": (
        SHARED_KINDS, "a shared library (cc_library or cc_library_shared)", "shared_libs"),
    "static_libs": (STATIC_KINDS, "a static library (cc_library or cc_library_static)", None),
    "whole_static_libs": (
        STATIC_KINDS, "a static library (cc_library or cc_library_static)", None),
    "export_static_lib_headers": (
        STATIC_KINDS, "a static library (cc_library or cc_library_static)", "static_libs"),
    "defaults": (DEFAULTS_KINDS, "defaults (cc_defaults)", None),
}
# Properties that put a module on the vendor partition.
VENDOR_FLAGS = ("vendor", "soc_specific", "proprietary")


class ParseError(Exception):
    pass


class Str(str):
    """A string value that remembers the line it was written on."""

    def __new__(cls, value, line):
        s = super().__new__(cls, value)
        s.line = line
        return s


TOKEN = re.compile(
    r"""(?P<space>[ \t\r]+)|(?P<newline>\n)|(?P<comment>//[^\n]*|/\*.*?\*/)"""
    r"""|(?P<string>"(?:[^"\\\n]|\\.)*"|`[^`]*`)|(?P<int>-?[0-9]+)"""
    r"""|(?P<ident>[A-Za-z_][A-Za-z0-9_.]*)|(?P<op>\+=|[{}\[\],:=+])""",
    re.S,
)


def tokenize(text, path):
    tokens, line, pos = [], 1, 0
    while pos < len(text):
        m = TOKEN.match(text, pos)
        if not m:
            raise ParseError(f"{path}:{line}: unexpected {text[pos]!r}")
        kind, value = m.lastgroup, m.group()
        if kind == "string":
            if value.startswith('"'):
                value = json.loads(value)
            else:
                value = value[1:-1]
            tokens.append(("string", Str(value, line), line))
        elif kind in ("int", "ident", "op"):
            tokens.append((kind, value, line))
        line += m.group().count("\n")
        pos = m.end()
    tokens.append(("end", None, line))
    return tokens


class Parser:
    """Blueprint: assignments (NAME = VALUE, NAME += VALUE) and modules (TYPE { PROP: VALUE, ... }).
    Values are strings, integers, booleans, lists, maps, variables and their '+' sums."""

    def __init__(self, text, path):
        self.path = path
        self.tokens = tokenize(text, path)
        self.at = 0
        self.variables = {}

    def peek(self):
        return self.tokens[self.at]

    def take(self, kind=None, value=None):
        token = self.peek()
        if (kind and token[0] != kind) or (value and token[1] != value):
            wanted = value or kind
            raise ParseError(f"{self.path}:{token[2]}: expected {wanted}, found {token[1] or 'end'}")
        self.at += 1
        return token

    def modules(self):
        found = []
        while self.peek()[0] != "end":
            _, name, line = self.take("ident")
            token = self.peek()
            if token[1] in ("=", "+="):
                self.take()
                value = self.value()
                self.variables[name] = (
                    self.add(self.variables[name], value, line) if token[1] == "+=" else value)
            elif token[1] == "{":
                found.append((name, self.map(), line))
            else:
                raise ParseError(f"{self.path}:{token[2]}: expected '=' or '{{' after {name}")
        return found

    def map(self):
        self.take("op", "{")
        props = {}
        while self.peek()[1] != "}":
            _, key, _ = self.take("ident")
            self.take("op", ":")
            props[key] = self.value()
            if self.peek()[1] != "}":
                self.take("op", ",")
        self.take("op", "}")
        return props

    def value(self):
        left = self.operand()
        while self.peek()[1] == "+":
            line = self.take()[2]
            left = self.add(left, self.operand(), line)
        return left

    def add(self, left, right, line):
        if type(left) is not type(right) and not (isinstance(left, str) and isinstance(right, str)):
            raise ParseError(f"{self.path}:{line}: cannot add {type(left).__name__} and "
                             f"{type(right).__name__}")
        if isinstance(left, str):
            return Str(left + right, getattr(left, "line", line))
        if isinstance(left, dict):
            return {**left, **right}
        return left + right

    def operand(self):
        kind, value, line = self.peek()
        if kind == "string":
            self.take()
            return value
        if kind == "int":
            self.take()
            return int(value)
        if kind == "ident":
            self.take()
            if value in ("true", "false"):
                return value == "true"
            if value not in self.variables:
                raise ParseError(f"{self.path}:{line}: unknown variable {value}")
            return self.variables[value]
        if value == "[":
            self.take()
            items = []
            while self.peek()[1] != "]":
                items.append(self.value())
                if self.peek()[1] != "]":
                    self.take("op", ",")
            self.take("op", "]")
            return items
        if value == "{":
            return self.map()
        raise ParseError(f"{self.path}:{line}: unexpected {value or 'end'}")


def references(props, where=""):
    """(property, module name) for every module-naming property, also inside arch/target maps."""
    for key, value in props.items():
        if key in REFERENCES and isinstance(value, list):
            for name in value:
                yield key, where, name
        elif isinstance(value, dict):
            yield from references(value, f"{where}{key}.")


def check(bp_path, modules_path):
    with open(modules_path, encoding="utf-8") as f:
        listed = json.load(f)["modules"]
    for name, entry in listed.items():
        missing = [k for k in ("kind", "vendor", "tree", "path") if k not in entry]
        if missing:
            raise ParseError(f"{modules_path}: {name}: missing {', '.join(missing)}")
    with open(bp_path, encoding="utf-8") as f:
        defined = Parser(f.read(), bp_path).modules()

    local = {}
    for kind, props, line in defined:
        name = props.get("name")
        if isinstance(name, str):
            local[name] = (kind, props)

    def is_vendor(props, seen=()):
        if any(props.get(flag) is True for flag in VENDOR_FLAGS):
            return True
        for d in props.get("defaults", []):
            if d in local and d not in seen and is_vendor(local[d][1], seen + (d,)):
                return True
        return False

    errors = []
    for kind, props, line in defined:
        module = props.get("name", f"<{kind} without a name>")
        vendor = is_vendor(props)
        for prop, where, dep in references(props):
            kinds, wanted, companion = REFERENCES[prop]
            at = f"{bp_path}:{getattr(dep, 'line', line)}: module \"{module}\": {where}{prop}"
            if dep in local:
                dep_kind, origin, available = local[dep][0], "defined in this file", True
            elif dep in listed:
                entry = listed[dep]
                dep_kind, available = entry["kind"], entry["vendor"]
                origin = f"{entry['tree']} {entry['path'] or ''}".strip()
            else:
                errors.append(f"{at} names \"{dep}\", which is not a module of this file nor in "
                              f"{os.path.basename(modules_path)}: add it with its kind, vendor "
                              f"availability, tree and path")
                continue
            if dep_kind not in kinds:
                errors.append(f"{at} names \"{dep}\", a {dep_kind} ({origin}), which is not "
                              f"{wanted}")
            if vendor and available is False:
                errors.append(f"{at} names \"{dep}\" ({origin}), which vendor modules may not use")
            if companion:
                named = [n for p, w, n in references(props) if p == companion and w == where]
                if dep not in named:
                    errors.append(f"{at} names \"{dep}\", which {where}{companion} does not")
    return errors, len(defined), len(listed)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("android_bp", nargs="?", default=DEFAULT_BP)
    parser.add_argument("--modules", default=DEFAULT_MODULES)
    args = parser.parse_args()
    try:
        errors, count, listed = check(args.android_bp, args.modules)
    except (OSError, ValueError, KeyError, ParseError) as e:
        print(f"check-android-bp: {e}", file=sys.stderr)
        return 2
    for error in errors:
        print(error, file=sys.stderr)
    if errors:
        return 1
    print(f"{args.android_bp}: {count} modules, every dependency of the kind its property takes "
          f"({listed} platform modules listed)")
    return 0


if __name__ == "__main__":
    sys.exit(main())
