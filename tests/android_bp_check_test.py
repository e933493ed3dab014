#!/usr/bin/env python3
"""The Android.bp check: the repo's file passes, and copies with one mistake each fail with the
module's name (or cannot be parsed)."""

import json
import os
import subprocess
import sys
import tempfile
import unittest

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
CHECK = os.path.join(ROOT, ".ci", "check-android-bp.py")
ANDROID_BP = os.path.join(ROOT, "Android.bp")
MODULES = os.path.join(ROOT, ".ci", "platform-modules.json")

with open(ANDROID_BP, encoding="utf-8") as f:
    FIXED = f.read()
with open(MODULES, encoding="utf-8") as f:
    LISTED = json.load(f)


def replaced(old, new):
    """Android.bp with `old` (which must be there) replaced once by `new`."""

    def change(text):
        assert old in text, old
        return text.replace(old, new, 1)

    return change


def not_for_vendor(name):
    """The module list with `name` marked as unavailable to vendor modules."""
    modules = json.loads(json.dumps(LISTED))
    modules["modules"][name]["vendor"] = False
    return modules


class AndroidBpCheckTest(unittest.TestCase):
    def run_check(self, text, modules=None):
        with tempfile.TemporaryDirectory(prefix="android-bp-check-") as work:
            bp = os.path.join(work, "Android.bp")
            with open(bp, "w", encoding="utf-8") as f:
                f.write(text)
            args = [sys.executable, CHECK, bp]
            if modules is not None:
                listed = os.path.join(work, "modules.json")
                with open(listed, "w", encoding="utf-8") as f:
                    json.dump(modules, f)
                args += ["--modules", listed]
            return subprocess.run(args, capture_output=True, text=True, check=False)

    def test_the_repos_file_passes(self):
        result = self.run_check(FIXED)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(result.stderr, "")

    def test_each_mistake_fails_naming_the_module(self):
        library = '"libzyncam_grallocutils_aidlv2helper"'
        cases = [
            ("a static library as a header library",
             replaced('"libarect_headers", // android/rect.h', '"libarect", // android/rect.h'),
             None, [library, 'header_libs names "libarect"', "cc_library_static",
                    "not a header library"]),
            ("a static library re-exported as headers",
             lambda t: t.replace('"libarect_headers"', '"libarect"'), None,
             ['export_header_lib_headers names "libarect"', "frameworks/native libs/arect"]),
            ("a static library as a shared one",
             replaced('"libbinder_ndk",\n        "libcutils",\n        "libgralloc_extra"',
                      '"libbinder_ndk",\n        "libarect",\n        "libgralloc_extra"'),
             None, [library, 'shared_libs names "libarect"', "not a shared library"]),
            ("a module nobody defines",
             replaced('"libsync",', '"libsynk",'), None,
             ['shared_libs names "libsynk"', "not a module of this file nor in"]),
            ("a header library exported but not named",
             replaced('export_header_lib_headers: [\n        "libarect_headers",',
                      'export_header_lib_headers: [\n        "libarect_headers",\n'
                      '        "libutils_headers",'),
             None, [library, 'export_header_lib_headers names "libutils_headers"',
                    "header_libs does not"]),
            ("a module vendor modules may not use", lambda t: t, not_for_vendor("libcutils"),
             [library, '"gralloc-layout"', '"libcutils"', "vendor modules may not use"]),
            ("defaults that are a library",
             replaced('"libzyncam_grallocutils_aidlv2helper_defaults",\n        // The tree',
                      '"libgralloctypes",\n        // The tree'),
             None, [library, 'defaults names "libgralloctypes"', "not defaults"]),
        ]
        for name, change, modules, expected in cases:
            with self.subTest(name):
                result = self.run_check(change(FIXED), modules)
                self.assertEqual(result.returncode, 1, result.stdout)
                for text in expected:
                    self.assertIn(text, result.stderr)

    def test_a_file_that_does_not_parse_is_an_error_of_its_own(self):
        for name, text in [("unclosed module", "cc_library {\n    name: \"x\",\n"),
                           ("unknown variable", "cc_library { srcs: files }\n"),
                           ("list added to a string", "x = \"a\" + [\"b\"]\n")]:
            with self.subTest(name):
                result = self.run_check(text)
                self.assertEqual(result.returncode, 2, result.stderr)
                self.assertIn("Android.bp:", result.stderr)

    def test_variables_and_nested_properties_are_followed(self):
        text = ('common_headers = ["libarect"]\n'
                'cc_library_shared {\n    name: "libx",\n    vendor: true,\n'
                '    target: { android: { header_libs: common_headers + ["libsystem_headers"] } },\n'
                '}\n')
        result = self.run_check(text)
        self.assertEqual(result.returncode, 1)
        self.assertIn('module "libx": target.android.header_libs names "libarect"', result.stderr)
        self.assertNotIn("libsystem_headers", result.stderr)


if __name__ == "__main__":
    unittest.main()
