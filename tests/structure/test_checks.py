#!/usr/bin/env python3
"""Shows of each check of this folder that it can fail, and that it doesn't when it shouldn't."""

import hashlib
import json
import os
import re
import shutil
import subprocess
import tempfile
import unittest

import blueprint
import check_android_bp
import check_attributes
import check_device
import check_format
import check_hal_docs
import check_hal_frozen
import check_includes
import check_integration
import check_properties
import check_seccomp
import check_tidy
import check_words
import soong
import source_tree


TREE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))


class TreeTest(unittest.TestCase):
    """A test on a small source tree of its own."""

    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.root = holder.name

    def write(self, path, text):
        path = os.path.join(self.root, path)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)

    def assert_complains(self, complaints, *parts):
        """There is one complaint, and it has all the parts."""
        self.assertEqual(len(complaints), 1, complaints)
        for part in parts:
            self.assertIn(part, complaints[0])


class BlueprintTest(unittest.TestCase):

    def test_modules_with_every_kind_of_value_are_read(self):
        modules = blueprint.parse("""
            // A comment.
            cc_binary {
                name: "a", /* another */
                vendor: true,
                srcs: ["b.cpp", "c.cpp"],
                target: { android: { enabled: false, }, },
                level: 3
            }
            cc_defaults { name: "d", }
        """)
        self.assertEqual(modules, [
            ("cc_binary", {
                "name": "a",
                "vendor": True,
                "srcs": ["b.cpp", "c.cpp"],
                "target": {"android": {"enabled": False}},
                "level": 3,
            }),
            ("cc_defaults", {"name": "d"}),
        ])

    def test_what_is_not_the_language_is_an_error(self):
        for text in ("cc_binary {", "cc_binary { name: }", "cc_binary { srcs: [\"a\" \"b\"] }",
                     "{}", "cc_binary { name: \"a\", name: \"b\" }", "a = $"):
            with self.subTest(text), self.assertRaises(blueprint.Error):
                blueprint.parse(text)


class AttributesTest(TreeTest):

    ASKING = """
        #if __has_attribute(retain)
        #define KEPT __attribute__((retain))
        #else
        #define KEPT
        #endif
        KEPT int number = 1;
    """

    def complaints(self, **files):
        """Of the files service/NAME.cpp."""
        commands = []
        for name, text in files.items():
            self.write(f"service/{name}.cpp", text)
            commands.append({"directory": self.root, "file": f"{self.root}/service/{name}.cpp",
                             "command": f"c++ -o {name}.o -c service/{name}.cpp"})
        self.write("build/compile_commands.json", json.dumps(commands))
        return check_attributes.check(self.root, os.path.join(self.root, "build"))

    def test_attribute_behind_its_question_is_fine(self):
        self.assertEqual(self.complaints(asking=self.ASKING, other="int retain = 1;"), [])

    def test_attribute_that_is_not_asked_for_is_found(self):
        self.assert_complains(
            self.complaints(asking=self.ASKING, other="int other __attribute__((used, retain));"),
            "service/other.cpp", "retain")

    def test_source_without_anything_for_an_old_compiler_is_found(self):
        self.assert_complains(
            self.complaints(asking="""
                #if __has_attribute(retain)
                #define KEPT __attribute__((retain))
                #endif
                KEPT int number = 1;
            """),
            "service/asking.cpp", "error")

    def test_a_tree_without_sources_is_no_success(self):
        self.assert_complains(self.complaints(), self.root, "there are no sources")


MODULE = """cc_library_static {
    name: "libcorvidwifi_os",
    vendor: true,
    srcs: ["Poll.cpp"],
    sanitize: {
        cfi: true,
        integer_overflow: true,
    },
}
"""


class AndroidBpTest(TreeTest):

    def setUp(self):
        super().setUp()
        self.write("os/Android.bp", MODULE)
        self.write("os/Poll.cpp", "")
        self.list("libcorvidwifi_os", "os/Poll.cpp")

    def list(self, target, *sources):
        """What CMake writes of a target."""
        place = os.path.join(os.path.dirname(sources[0]), "CMakeLists.txt")
        self.write(f"build/source-lists/{target}", "\n".join((place, *sources)) + "\n")

    def check(self):
        return check_android_bp.check(self.root, os.path.join(self.root, "build/source-lists"))

    def test_equal_lists_are_fine(self):
        self.assertEqual(self.check(), [])

    def test_a_source_that_only_cmake_has_is_found(self):
        self.write("os/Log.cpp", "")
        self.list("libcorvidwifi_os", "os/Poll.cpp", "os/Log.cpp")
        self.assert_complains(self.check(), "os/Android.bp", "os/CMakeLists.txt", "os/Log.cpp")

    def test_a_source_that_only_the_device_has_is_found(self):
        self.write("os/Android.bp", MODULE.replace(
            '["Poll.cpp"]', '[\n        "Log.cpp",\n        "Poll.cpp",\n    ]'))
        self.write("os/Log.cpp", "")
        self.assert_complains(self.check(), "os/CMakeLists.txt", "os/Android.bp", "os/Log.cpp")

    def test_a_source_that_is_listed_twice_is_found(self):
        self.write("os/Android.bp", MODULE.replace(
            '["Poll.cpp"]', '[\n        "Poll.cpp",\n        "Poll.cpp",\n    ]'))
        self.assert_complains(self.check(), "os/Poll.cpp twice")

    def test_a_module_without_a_target_is_found(self):
        self.write("tools/Android.bp", MODULE.replace("_os", "_tools"))
        self.write("tools/Poll.cpp", "")
        self.assert_complains([complaint for complaint in self.check() if "_tools" in complaint],
                              "tools/Android.bp", "no CMakeLists.txt")

    def test_a_target_without_a_module_is_found(self):
        self.list("libcorvidwifi_tools", "tools/main.cpp")
        self.assert_complains(self.check(), "tools/CMakeLists.txt", "no Android.bp")

    def test_a_source_that_nothing_builds_is_found(self):
        self.write("managers/StaManager.cpp", "")
        self.assert_complains(self.check(), "managers/StaManager.cpp", "neither")

    def test_sources_in_defaults_are_found(self):
        self.write("os/Android.bp", MODULE + MODULE.replace("cc_library_static", "\ncc_defaults"))
        self.assert_complains(self.check(), "cc_defaults", "has srcs")

    def test_two_modules_of_one_name_are_found(self):
        self.write("os/tools/Android.bp", MODULE.replace("Poll.cpp", "../Poll.cpp"))
        self.assert_complains(self.check(), "os/tools/Android.bp", "libcorvidwifi_os",
                              "in os/Android.bp")

    def assert_module_complains(self, text, *parts):
        """Of one more module, a `text` in brackets of any indentation."""
        formatted = subprocess.run(["bpfmt", "-o"], input=text + "\n", capture_output=True,
                                   text=True, check=True).stdout
        self.write("os/Android.bp", MODULE + "\n" + formatted)
        self.assert_complains(self.check(), "os/Android.bp: other", *parts)

    def test_a_property_that_the_type_does_not_know_is_found(self):
        for text, found in (
                ('cc_fuzz { name: "other", vendor: true, corpora: ["*.cpp"], '
                 'sanitize: { cfi: true, integer_overflow: true } }',
                 "cc_fuzz has no property corpora"),
                ('cc_defaults { name: "other", sanitize: { cfl: true } }', "sanitize.cfl"),
                ('cc_library_headers { name: "other", test_suites: ["vts"] }', "test_suites"),
                ('hidl_interface { name: "other", double_loadable: true }',
                 "hidl_interface has no property double_loadable"),
                ('cc_program { name: "other" }', "no module type cc_program"),
                ('filegroup { name: "other", vendor: "true" }', "true or false, not a string"),
                ('cc_defaults { name: "other", cflags: "-Wall" }', "a list of strings"),
                ('cc_defaults { name: "other", sanitize: true }', "a map")):
            with self.subTest(text):
                self.assert_module_complains(text, found, "tests/structure/soong.py")

    def test_properties_of_every_depth_are_known(self):
        self.assertEqual(soong.complaints("cc_test", {
            "name": "a", "vendor": True, "cflags": ["-Wall"],
            "target": {"android": {"shared_libs": ["b"], "sanitize": {"diag": {"cfi": True}}}},
        }), [])

    def test_a_module_that_is_not_the_vendors_or_not_sanitized_is_found(self):
        base = ("os/Android.bp", "cc_defaults", {"name": "base"})
        module = ("os/Android.bp", "cc_binary", {"name": "other", "defaults": ["base"]})
        sanitize = {"cfi": True, "integer_overflow": True}

        def set_base(vendor, sanitize):
            base[2].update({"vendor": vendor, "sanitize": sanitize})
            return check_android_bp.unset([base, module])

        self.assertEqual(set_base(True, sanitize), [])
        for vendor, sanitize, found in (
                (True, {"integer_overflow": True}, "sanitize.cfi is unset, not true"),
                (True, {**sanitize, "integer_overflow": False},
                 "sanitize.integer_overflow is false, not true"),
                (True, {**sanitize, "never": True}, "sanitize.never is true, not unset"),
                (False, sanitize, "vendor is false, not true")):
            with self.subTest(found):
                self.assert_complains(set_base(vendor, sanitize), "os/Android.bp: other", found)
        # What the module itself says holds.
        module[2]["vendor"] = True
        self.assertEqual(set_base(False, {"cfi": True, "integer_overflow": True}), [])
        for kind in ("cc_fuzz", "cc_library", "cc_library_shared", "cc_library_static", "cc_test"):
            self.assert_complains(check_android_bp.unset([("os/Android.bp", kind, {
                "name": "other", "sanitize": {"cfi": True, "integer_overflow": True}})]),
                "os/Android.bp: other: vendor is unset")

    def test_a_test_with_two_main_functions_or_none_is_found(self):
        self.write("os/Poll.cpp", "int main(int argc, char** argv) {\n")
        modules = {"other": ("os/Android.bp", ["os/Poll.cpp"])}

        def entries(**properties):
            return check_android_bp.entries(
                self.root, [("os/Android.bp", "cc_test", {"name": "other", **properties})], modules)

        self.assertEqual(entries(gtest=False), [])
        self.assert_complains(entries(), "os/Android.bp: other", "main of os/Poll.cpp")
        self.write("os/Poll.cpp", "// int main( is GoogleTest's.\n")
        self.assertEqual(entries(), [])
        self.assert_complains(entries(gtest=False), "os/Android.bp: other", "no source of its")

    def test_a_header_that_is_generated_by_another_name_is_found(self):
        text = 'genrule { name: "corvidwifi_version", out: ["version.h"] }'
        complaints = check_android_bp.not_generated([("Android.bp", *blueprint.parse(text)[0])])
        self.assert_complains(complaints, "Android.bp: corvidwifi_version", "['version.h']",
                              "<corvid_wifi_version.h>")

    def test_what_a_source_uses_and_its_module_lacks_is_found(self):
        self.write("os/Poll.cpp", '#include "os/Poll.h"\n')
        for text, *found in (("#include <netlink/attr.h>", "lacks libnl", "<netlink/attr.h>"),
                             ("#include <event2/event.h>", "<event2/event.h>", "no module has"),
                             ("void f() { throw 1; }", "-fexceptions", "uses exceptions")):
            with self.subTest(text):
                self.write("os/Poll.h", text + "\n")
                self.assert_complains(self.check(), "os/Android.bp: libcorvidwifi_os", "os/Poll.h",
                                      *found)

    def test_a_library_of_this_tree_that_is_not_linked_is_found(self):
        self.write("os/Poll.h", "")
        self.write("os/main.cpp", '#include "os/Poll.h"\n')
        sources = {"library": ("os/Android.bp", ["os/Poll.cpp"]),
                   "other": ("os/Android.bp", ["os/main.cpp"])}

        def unlinked(*libraries):
            return check_android_bp.unlinked(self.root, [
                ("os/Android.bp", "cc_library_static", {"name": "library"}),
                ("os/Android.bp", "cc_library_static",
                 {"name": "whole", "whole_static_libs": ["library"]}),
                ("os/Android.bp", "cc_binary", {"name": "other", "static_libs": list(libraries)}),
            ], sources)

        self.assertEqual(unlinked("library"), [])
        self.assertEqual(unlinked("whole"), [])
        self.assert_complains(unlinked("libgmock"), "os/Android.bp: other lacks library",
                              "include os/Poll.h")

    def test_what_needs_no_library_is_not_missed(self):
        for text in ("#include <sys/socket.h>\n#include <vector>\n",
                     "// May throw what std::stoi throws.\n/* as throw 1; */\n",
                     "// #include <netlink/attr.h>\n/*\n#include <event2/event.h>\n*/\n"):
            with self.subTest(text):
                self.write("os/Poll.cpp", text)
                self.assertEqual(self.check(), [])

    def test_what_a_module_has_by_its_defaults_is_not_missed(self):
        self.write("os/Poll.cpp", "#include <netlink/attr.h>\nvoid f() { throw 1; }\n")
        modules = {"other": ("os/Android.bp", ["os/Poll.cpp"])}
        self.assertEqual(check_android_bp.unlinked(self.root, [
            ("os/Android.bp", "cc_defaults", {"name": "base", "cppflags": ["-fexceptions"]}),
            ("os/Android.bp", "cc_defaults", {"name": "more", "defaults": ["base"],
                                              "shared_libs": ["libnl"]}),
            ("os/Android.bp", "cc_binary", {"name": "other", "defaults": ["more"]}),
        ], modules), [])

    def test_a_test_that_no_suite_runs_is_found(self):
        for text, found in (
                ('cc_test { name: "other", test_suites: ["vts"] }', "device-tests"),
                ('cc_test { name: "VtsOther", test_suites: ["device-tests"] }', "vts")):
            with self.subTest(text):
                complaints = check_android_bp.suites(
                    [("tests/Android.bp", *blueprint.parse(text)[0])])
                self.assert_complains(complaints, "tests/Android.bp", found)

    def test_a_module_that_is_not_there_or_of_another_type_is_found(self):
        for text, *found in (
                ('cc_defaults { name: "other", defaults: ["none"] }', "none in defaults",
                 "no Android.bp"),
                ('cc_defaults { name: "other", static_libs: ["libcorvidwifi_none"] }',
                 "libcorvidwifi_none in static_libs", "no Android.bp"),
                ('cc_defaults { name: "other", shared_libs: ["libcorvidwifi_os"] }',
                 "libcorvidwifi_os in shared_libs", "in os/Android.bp it is a cc_library_static"),
                ('cc_defaults { name: "other", init_rc: [":corvid.rc"] }', "corvid.rc in init_rc",
                 "no Android.bp")):
            with self.subTest(text):
                self.assert_module_complains(text, *found)

    def test_a_file_that_is_not_there_is_found(self):
        self.assert_module_complains('filegroup { name: "other", srcs: ["none.rc"] }',
                                     "none.rc in srcs", "no os/none.rc")

    def test_nothing_to_compare_is_no_success(self):
        os.remove(os.path.join(self.root, "os/Android.bp"))
        os.remove(os.path.join(self.root, "os/Poll.cpp"))
        os.remove(os.path.join(self.root, "build/source-lists/libcorvidwifi_os"))
        self.assert_complains(self.check(), "nothing to compare")

    def test_bad_formatting_is_found(self):
        self.write("os/Android.bp", MODULE.replace("    name", "  name"))
        self.assert_complains(self.check(), "os/Android.bp: not formatted")

    def test_what_bpfmt_can_not_read_is_found(self):
        self.write("os/Android.bp", MODULE + "cc_binary {\n")
        complaints = check_android_bp.formatting(self.root)
        self.assert_complains(complaints, "os/Android.bp: bpfmt does not accept it")


class IncludesTest(TreeTest):

    def check(self, path, include):
        for header in ("os/Poll.h", "client/WpaClient.h", "host/root/HostRoot.h"):
            self.write(header, "#pragma once\n")
        self.write(path, f"// One line.\n#include {include}\n")
        return check_includes.check(self.root)

    def test_what_is_allowed_is_fine(self):
        for path, include in (
            ("client/WpaClient.cpp", '"client/WpaClient.h"'),
            ("client/WpaClient.cpp", '"os/Poll.h"'),
            ("client/WpaClient.cpp", "<netlink/msg.h>"),
            ("client/WpaClient.cpp", "<wpa_ctrl.h>"),
            ("client/WpaClient.cpp", "<sys/epoll.h>"),
            ("client/WpaClient.cpp", "<vector>"),
            ("client/WpaClient.cpp", "<android-base/unique_fd.h>"),
            ("config/Properties.cpp", "<sys/system_properties.h>"),
            ("host/stats/Stats.cpp", '"Stats.h"'),
            ("host/eventfd/EventFd.cpp", '"os/Poll.h"'),
            ("sim/Stage.cpp", '"host/root/HostRoot.h"'),
            ("tests/os/PollTest.cpp", '"os/Poll.h"'),
            ("tests/vts/Test.cpp", "<hidl/HidlSupport.h>"),
        ):
            with self.subTest(path=path, include=include):
                self.assertEqual(self.check(path, include), [])
                os.remove(os.path.join(self.root, path))

    def test_what_is_not_allowed_is_found(self):
        for path, include, part in (
            ("os/Poll.cpp", '"client/WpaClient.h"', "os/ may include os/ only"),
            ("config/Properties.cpp", '"os/Poll.h"', "config/ may include"),
            ("tools/main.cpp", '"os/Poll.h"', "tools/ may include"),
            ("managers/StaManager.cpp", '"service/CorvidWifiManager.h"', "managers/ may include"),
            ("client/WpaClient.cpp", '"host/root/HostRoot.h"', "the device's own names"),
            ("client/WpaClient.cpp", '"WpaClient.h"', "by their path from the root"),
            ("client/WpaClient.cpp", '"../os/Poll.h"', "not by .."),
            ("client/WpaClient.cpp", '"client/Missing.h"', "no such file"),
            ("client/WpaClient.cpp", "<os/Poll.h>", "with quotation marks"),
            ("client/WpaClient.cpp", "<hidl/Status.h>", "may not use this library"),
            ("os/Poll.cpp", "<wpa_ctrl.h>", "may not use this library"),
            ("managers/StaManager.cpp", "<sys/system_properties.h>", "may not use this library"),
            ("managers/StaManager.cpp", "<netlink/msg.h>", "may not use this library"),
            ("host/stats/Stats.cpp", '"os/Poll.h"', "host/ may include"),
            ("host/stats/Stats.cpp", '"client/WpaClient.h"', "host/ may include"),
            ("sim/Stage.cpp", '"client/WpaClient.h"', "sim/ may include"),
            ("tests/vts/Test.cpp", '"client/WpaClient.h"', "tests/vts/ may include tests/vts/ only"),
            ("tests/vts/Test.cpp", '"tests/support/TempFolder.h"', "tests/vts/ may include"),
            ("tests/vts/Test.cpp", '"host/root/HostRoot.h"', "the device's own names"),
            ("tests/vts/Test.cpp", "<wpa_ctrl.h>", "may not use this library"),
        ):
            with self.subTest(path=path, include=include):
                self.assert_complains(self.check(path, include), f"{path}:2: ", part)
                os.remove(os.path.join(self.root, path))

    def test_no_sources_are_no_success(self):
        self.assert_complains(check_includes.check(self.root), "no sources")


HAL = """package vendor.corvid.hardware.wifi@1.0;

import types;

/** The service. */
interface IWifi {
    /** A pair. */
    struct Pair {
        /** In MHz. */
        int32_t frequency;
    };

    /**
     * Does something.
     *
     * @param count how often, { or ( or ; no matter.
     * @param names of what.
     * @return status 0 when done.
     */
    doIt(uint32_t count, vec<string> names) generates (Status status);

    /** Ends it. */
    oneway end();
};

/** A kind. */
enum Kind : uint32_t {
    NONE = 0,
};
"""


class HalDocsTest(TreeTest):

    def complaints(self, without):
        self.assertIn(without, HAL)
        return check_hal_docs.complaints_about("a.hal", HAL.replace(without, ""))

    def test_a_documented_file_is_fine(self):
        self.assertEqual(check_hal_docs.complaints_about("a.hal", HAL), [])

    def test_a_missing_comment_is_found(self):
        for comment, what in (("/** The service. */", "interface IWifi"),
                              ("/** A pair. */", "struct Pair"),
                              ("/** In MHz. */", "frequency"),
                              ("/** Ends it. */", "end"),
                              ("/** A kind. */", "enum Kind")):
            with self.subTest(comment):
                self.assert_complains(self.complaints(comment), what, "has no doc comment")

    def test_an_undocumented_parameter_is_found(self):
        self.assert_complains(self.complaints("@param names of what."), "doIt", "@param names")

    def test_an_undocumented_result_is_found(self):
        self.assert_complains(self.complaints("@return status 0 when done."), "doIt", "@return")

    def test_an_ordinary_comment_does_not_count(self):
        complaints = check_hal_docs.complaints_about(
            "a.hal", HAL.replace("/** Ends it. */", "/* Ends it. */"))
        self.assertEqual(len(complaints), 1, complaints)

    def test_no_files_are_no_success(self):
        self.assert_complains(check_hal_docs.check(self.root), "no .hal files")

    def test_an_empty_file_is_no_success(self):
        self.write("interface/wifi/1.0/types.hal", "package a@1.0;\n")
        self.assert_complains(check_hal_docs.check(self.root), "declares nothing")


class HalFrozenTest(TreeTest):
    """With one package of one file, which has shipped."""

    PATH = "interface/wifi/1.0/types.hal"
    RECORD = "interface/current.txt"
    TEXT = "package vendor.corvid.hardware.wifi@1.0;\nenum Kind : uint32_t { NONE };\n"
    PACKAGE_ROOT = 'hidl_package_root { name: "vendor.corvid.hardware", use_current: true }'

    def setUp(self):
        super().setUp()
        self.write(self.PATH, self.TEXT)
        self.hash = hashlib.sha256(self.TEXT.encode()).hexdigest()
        self.record(f"# shipped\n{self.hash} vendor.corvid.hardware.wifi@1.0::types # 1.0\n")
        self.write("interface/Android.bp", self.PACKAGE_ROOT)

    def record(self, text):
        self.write(self.RECORD, text)

    def check(self):
        return check_hal_frozen.check(self.root)

    def test_what_is_as_it_was_recorded_is_fine(self):
        self.assertEqual(self.check(), [])

    def test_a_module_by_which_the_build_would_look_elsewhere_is_found(self):
        interface = ('hidl_interface { name: "vendor.corvid.hardware.wifi@1.0", '
                     'root: "vendor.corvid.hardware" }')
        here = "interface/wifi/1.0/Android.bp"
        self.write(here, interface)
        self.assertEqual(self.check(), [])
        # An image's own root has taken over.
        self.write("interface/Android.bp", "")
        self.assertEqual(self.check(), [])
        for path, text, *found in (
                (here, interface.replace("hardware.wifi", "wifi"), "name of hidl_interface",
                 "not vendor.corvid.hardware.wifi@1.0"),
                (here, interface.replace('hardware" }', 'other" }'), "root of hidl_interface",
                 "vendor.corvid.other"),
                ("interface/Android.bp", self.PACKAGE_ROOT.replace(".hardware", ""), "name of",
                 "not vendor.corvid.hardware"),
                ("interface/Android.bp", self.PACKAGE_ROOT.replace("true", "false"),
                 "use_current of hidl_package_root is False"),
                ("interface/Android.bp", self.PACKAGE_ROOT + "\n" + self.PACKAGE_ROOT,
                 "another hidl_package_root in interface/Android.bp"),
                ("interface/Android.bp", "hidl_package_root {", "interface/Android.bp:")):
            with self.subTest(text):
                self.write(here, interface)
                self.write("interface/Android.bp", self.PACKAGE_ROOT)
                self.write(path, text)
                self.assert_complains(self.check(), path, *found)

    def test_a_changed_comment_is_found(self):
        self.write(self.PATH, self.TEXT + "// Later.\n")
        self.assert_complains(self.check(), self.PATH, self.RECORD + ":2", "next version")

    def test_a_file_that_was_added_to_a_frozen_package_is_found(self):
        self.write("interface/wifi/1.0/IMore.hal",
                   "package vendor.corvid.hardware.wifi@1.0;\ninterface IMore {};\n")
        self.write("host/hidl/hal/base/1.0/IBase.hal",
                   "package android.hidl.base@1.0;\ninterface IBase {};\n")
        self.assert_complains(self.check(), "interface/wifi/1.0/IMore.hal", "IMore", self.RECORD)

    def test_a_package_that_has_not_shipped_may_change(self):
        self.write("interface/wifi/1.1/types.hal", self.TEXT.replace("@1.0", "@1.1"))
        self.assertEqual(self.check(), [])

    def test_a_recorded_file_that_is_gone_is_found(self):
        os.remove(os.path.join(self.root, self.PATH))
        self.assert_complains(self.check(), self.RECORD + ":2", "wifi@1.0::types")

    def test_a_line_that_is_no_hash_is_found(self):
        self.record(f"{self.hash[:-1]} vendor.corvid.hardware.wifi@1.0::types\n")
        self.assert_complains(self.check(), self.RECORD + ":1")

    def test_no_record_is_no_success(self):
        self.record("")
        self.assert_complains(self.check(), "records nothing")
        os.remove(os.path.join(self.root, self.RECORD))
        self.assert_complains(self.check(), "is missing")

    def test_a_file_that_does_not_parse_is_found(self):
        self.write(self.PATH, "package")
        self.assert_complains(self.check(), self.PATH, "no hash")


PROPERTIES = """#define CORVID_WIFI_PROPERTIES(P, F) \\
    P(bool, cmd_scan, "cmd.scan", false, Flag, Both, "scans") \\
    \\
    P(unsigned, dbm_upper, "dbm.upper", 20, Step, FirstUse, "upper step, " \\
      "dBm") \\
    \\
    F(int, which, "which", 0, Count, AtOnce, "which")
P(not, of, "the list")
inline constexpr PropertyRange kFlag{0, 1, "default"};
inline constexpr PropertyRange kStep{0, 60, "sent"};
inline constexpr PropertyRange kCount{0, 2147483647, "sent"};
"""

USES = """ReadOnce<unsigned> upper{Sysprop::corvid_wifi_dbm_upper,
                         20};
bool scans() { return Sysprop::corvid_wifi_cmd_scan(false); }
int which() { return corvid_wifi_which(false); }
"""


class PropertiesTest(TreeTest):

    LIST = "config/CorvidWifiProperties.h"

    def setUp(self):
        super().setUp()
        self.write(self.LIST, PROPERTIES)
        self.write("config/FeatureList.h", "Feature<class Scan>(property::cmd_scan),\n")
        self.write("managers/A.cpp", USES)
        self.assertEqual(check_properties.check(self.root, write=True), [])

    def change(self, path, old, new):
        with open(os.path.join(self.root, path), encoding="utf-8") as file:
            text = file.read()
        self.assertIn(old, text)
        self.write(path, text.replace(old, new))

    def check(self):
        return check_properties.check(self.root)

    def test_lists_that_agree_are_fine(self):
        self.assertEqual(self.check(), [])
        with open(os.path.join(self.root, "device/sepolicy/property_contexts"),
                  encoding="utf-8") as file:
            self.assertEqual(len(file.read().splitlines()), 2 + 3)

    def test_another_default_in_the_code_is_found(self):
        self.change("managers/A.cpp", "20", "21")
        self.assert_complains(self.check(), self.LIST + ":5", "20", "managers/A.cpp:1", "21")

    def test_a_property_that_nobody_uses_is_found(self):
        self.change("managers/A.cpp", "int which() { return corvid_wifi_which(false); }", "")
        self.assert_complains(self.check(), self.LIST + ":7", "which", "used neither")

    def test_a_read_of_an_unlisted_property_is_found(self):
        self.write("managers/B.cpp", "bool b = corvid_wifi_more(true);\n")
        self.assert_complains(self.check(), "managers/B.cpp:1", "more", self.LIST)

    def test_an_unlisted_property_that_a_lab_case_or_test_sets_is_found(self):
        fine = """foreach(feature cmd.scan dbm.upper
            which)
          list(APPEND on "property persist.vendor.wifi.${feature} true")
        vts_test(Name "property persist.vendor.wifi.cmd.scan true")
        for feature in cmd.scan \\
            dbm.upper; do
            property $feature true
        property cmd.scan true
        # property NAME VALUE, without the "persist.vendor.wifi." before it
        # A sentence about the property dbm.upper.
        """
        for path in ("lab/cases/a.sh", "lab/guest/words.sh", "tests/vts/CMakeLists.txt"):
            self.write(path, fine)
            self.assertEqual(self.check(), [])
            for old, line in (("which)", 1), ("wifi.cmd.scan", 4), ("dbm.upper;", 5),
                              ("property cmd.scan", 8)):
                with self.subTest(path=path, old=old):
                    self.change(path, old, re.sub(r"\w+([;)]?)$", r"scna\1", old))
                    self.assert_complains(self.check(), f"{path}:{line}: sets", "scna", self.LIST)
                    self.write(path, fine)

    def test_a_time_of_effect_that_the_code_does_not_keep_is_found(self):
        for path, old, new, place in (
                (self.LIST, "Step, FirstUse", "Step, AtOnce", "managers/A.cpp:1"),
                (self.LIST, "Flag, Both", "Flag, AtOnce", "config/FeatureList.h:1"),
                (self.LIST, "Flag, Both", "Flag, FirstUse", "config/FeatureList.h:1"),
                (self.LIST, "Count, AtOnce", "Count, Both", "config/FeatureList.h")):
            with self.subTest(new):
                self.change(path, old, new)
                self.assertEqual([place in complaint for complaint in self.check()][:1], [True])
                self.change(path, new, old)

    def test_an_entry_without_its_parts_is_found(self):
        for parts in ('"scans"', 'false, "scans"', 'false, Flag, "scans"', 'false, Both, "scans"',
                      'false, Flag, Sometimes, "scans"', 'false, Flag, Both', 'false, Flag, Both, ""',
                      'false, Often, Both, "scans"'):
            with self.subTest(parts):
                self.write(self.LIST, PROPERTIES.replace('false, Flag, Both, "scans"', parts))
                self.assertIn(self.LIST + ":2", self.check()[0])

    def test_a_made_file_that_was_changed_or_removed_is_found(self):
        for path in ("docs/properties.md", "device/sepolicy/property_contexts"):
            with self.subTest(path):
                self.change(path, "persist.vendor.wifi.dbm.upper", "persist.vendor.wifi.dbm.top")
                self.assert_complains(self.check(), path + ":", self.LIST, "dbm.top")
                os.remove(os.path.join(self.root, path))
                self.assert_complains(self.check(), path, "missing", self.LIST)
                check_properties.check(self.root, write=True)

    def test_a_property_that_only_the_contexts_have_is_found(self):
        with open(os.path.join(self.root, "device/sepolicy/property_contexts"), "a",
                  encoding="utf-8") as file:
            file.write("persist.vendor.wifi.more u:object_r:x:s0 exact bool\n")
        self.assert_complains(self.check(), "property_contexts:6", "more", "no such line")

    def test_a_name_that_is_listed_twice_is_found(self):
        self.change(self.LIST, '"which"', '"cmd.scan"')
        self.assertIn(f"{self.LIST}: persist.vendor.wifi.cmd.scan is there twice", self.check())

    def test_an_empty_list_is_no_success(self):
        self.write(self.LIST, "")
        self.assertIn("there is no CORVID_WIFI_PROPERTIES", self.check()[0])


class CopiedTreeTest(TreeTest):
    """A test on a copy of some of the tree's files, each changed in one place."""

    def copy(self, paths):
        for path in paths:
            copy = os.path.join(self.root, path)
            os.makedirs(os.path.dirname(copy), exist_ok=True)
            shutil.copy(os.path.join(TREE, path), copy)

    def change(self, path, *changes):
        with open(os.path.join(self.root, path), encoding="utf-8") as file:
            text = file.read()
        for old, new in changes:
            self.assertIn(old, text)
            text = text.replace(old, new)
        self.write(path, text)

    def assert_each_complains(self, check, changes):
        """Of each (path, old, new, part of the only complaint ...)."""
        for path, old, new, *parts in changes:
            with self.subTest(path=path, new=new):
                with open(os.path.join(self.root, path), encoding="utf-8") as file:
                    text = file.read()
                self.change(path, (old, new))
                try:
                    complaints = check(self.root)
                finally:
                    self.write(path, text)
                self.assert_complains(complaints, *parts)


class DeviceTest(CopiedTreeTest):

    # Where an image may need another user, folder or option than the tree has, the tests have their
    # own, so that they stay as they are when it does.
    OWN = {
        check_device.SCRIPT: f"""on post-fs-data
    mkdir /data/vendor/net 0771 radio radio
    mkdir /data/vendor/net/control 0770 radio radio
    mkdir /data/vendor/net/control/sockets 0770 radio radio

service vendor.corvid-wifi-1-0 /vendor/bin/hw/{check_device.DAEMON}
    interface vendor.corvid.hardware.wifi@1.0::IWifi default
    class hal
    user radio
    group radio inet
    capabilities NET_ADMIN
    priority 0
    rlimit nofile 256 256
    memcg.limit_in_bytes 33554432
    restart_period 5
""",
        check_device.SOCKETS: 'devicePath("/data/vendor/net/control/sockets/")',
        check_device.REPORT: 'sockets = rooted("/data/vendor/net/control/sockets")',
        check_device.NUMBERS: '{"system", 1000}, {"radio", 1001}',
        check_device.WORDS: "# words\nwifi=1001\n",
        check_device.PAGE: "The supplicant runs as user `radio`.",
    }

    def setUp(self):
        super().setUp()
        self.copy((check_device.MANIFEST, check_device.FRAMEWORK_MATRIX, check_device.DEVICE_MATRIX,
                   check_device.MODULES, check_device.DEVICE_MODULES, check_device.INTERFACE,
                   check_device.ENTRY, check_device.OBJECT, check_device.INDEXES,
                   check_device.STATISTICS, check_device.STATISTICS_HEADER))
        for path, text in self.OWN.items():
            self.write(path, text)

    def test_files_that_agree_are_fine(self):
        self.assertEqual(check_device.check(self.root), [])

    def test_each_disagreement_names_both_places(self):
        script, manifest = check_device.SCRIPT, check_device.MANIFEST
        self.assert_each_complains(check_device.check, (
            (script, "/vendor/bin/hw/", "/vendor/bin/", script, check_device.MODULES),
            (script, "@1.0::IWifi", "@1.1::IWifi", script, check_device.INTERFACE),
            (script, "IWifi default", "IWifi other", script, check_device.ENTRY),
            (script, "    priority", "    user root\n    priority", script,
             f"user is already given at {script}:"),
            (script, "    priority", "    group radio system\n    priority", "group is already"),
            (script, "    priority", "    class late_start\n    priority", "class is already"),
            (script, "    priority",
             "    interface vendor.corvid.hardware.wifi@1.1::IWifi default\n    priority",
             "interface is already"),
            (script, "    priority", "    seclabel u:r:su:s0\n    priority", script,
             check_device.FILE_CONTEXTS),
            (script, "    priority", "    ioprio rt 0\n    priority", script,
             "nothing compares ioprio", "check_device.py"),
            (script, "on post-fs-data\n", "on boot\n    start vendor.other\non post-fs-data\n",
             script, "nothing compares 'on boot'"),
            (script, "on post-fs-data\n", "on post-fs-data\n    chmod 0777 /data/vendor/net\n",
             script, "is no 'mkdir FOLDER"),
            (script, "on post-fs-data\n",
             "on post-fs-data\n    mkdir /data/vendor/net 0777 root root\n",
             script, "/data/vendor/net is already made"),
            (check_device.NUMBERS, '{"radio", 1001}', '{"radio", 1011}', script, check_device.NUMBERS,
             check_device.WORDS),
            (check_device.WORDS, "\nwifi=1001", "\nwifi=1000", script, check_device.NUMBERS,
             check_device.WORDS),
            (check_device.PAGE, "as user `radio`", "as user `system`", script, check_device.PAGE),
            (script, "group radio inet", "group inet", script, "has not the group radio",
             check_device.SOCKETS),
            (script, "group radio inet", "group radio", script, check_device.INDEXES),
            (script, "group radio inet", "group radio inet system", script,
             check_device.INDEXES),
            (check_device.INDEXES, "if_nametoindex(", "indexOf(", script,
             check_device.INDEXES),
            (script, "class hal", "class early_hal", script, check_device.SWITCHES),
            (script, "    priority", "    oneshot\n    priority", script, check_device.ENTRY),
            (script, "    priority", "    disabled\n    priority", script, check_device.ENTRY),
            (script, "    mkdir /data/vendor/net 0771 radio radio\n", "", script,
             "no folder /data/vendor/net,", check_device.SOCKETS),
            (script, "net 0771 radio radio", "net 0770 root root", script, "root's",
             check_device.SOCKETS),
            (script, "nofile", "files", script, "rlimit takes no 'files"),
            (script, "priority 0", "priority 20", script, "priority takes no"),
            (script, "sockets 0770", "sockets 0777", script, "0777", check_device.SOCKETS),
            (script, "sockets 0770", "sockets 0670", script, "0670", check_device.SOCKETS),
            (script, "restart_period", "restart_after", script, "no option"),
            (script, "rlimit nofile 256", "rlimit nofile", script, "3 arguments"),
            (script, "    capabilities", "    #", script, "no capabilities"),
            (script, "service vendor.corvid-wifi-1-0", "on boot", script, "has 0 services"),
            (manifest, ">vendor.corvid.hardware.wifi<", ">vendor.corvid.hardware.wlan<",
             manifest, check_device.INTERFACE),
            (manifest, "/default", "/main", manifest, check_device.ENTRY),
            (manifest, "@1.0", "@1.1", manifest, check_device.INTERFACE),
            (manifest, 'type="device"', 'type="framework"', manifest, "device"),
            (manifest, "hwbinder<", "ethernet<", manifest, "vintf.xsd"),
            (check_device.FRAMEWORK_MATRIX, "1.0</version>", "2.0</version>",
             check_device.FRAMEWORK_MATRIX, check_device.INTERFACE),
            (check_device.FRAMEWORK_MATRIX, 'optional="true"', 'optional="false"',
             check_device.FRAMEWORK_MATRIX, "not optional"),
            (manifest, "    </hal>", "        <fqname>@1.0::IWifi/main</fqname>\n    </hal>",
             manifest, "IWifi/default, @1.0::IWifi/main", check_device.ENTRY),
            (check_device.FRAMEWORK_MATRIX, "1.0</version>",
             "1.0</version>\n        <version>2.0</version>", check_device.FRAMEWORK_MATRIX,
             "1.0, 2.0", check_device.INTERFACE),
            (check_device.FRAMEWORK_MATRIX, "default<", "main<",
             check_device.FRAMEWORK_MATRIX, check_device.ENTRY),
            (check_device.FRAMEWORK_MATRIX, "<instance>default",
             "<instance>main</instance>\n            <instance>default",
             check_device.FRAMEWORK_MATRIX, "main, default", check_device.ENTRY),
            (check_device.DEVICE_MATRIX, "IStats", "IStatistics",
             check_device.DEVICE_MATRIX, check_device.STATISTICS),
            (check_device.DEVICE_MATRIX, "default<", "main<",
             check_device.DEVICE_MATRIX, check_device.STATISTICS),
            (check_device.STATISTICS, "tryGetService()", 'tryGetService("main")',
             check_device.DEVICE_MATRIX, check_device.STATISTICS, "'main'"),
            (check_device.STATISTICS_HEADER, "stats/1.0/", "stats/2.0/",
             f"{check_device.DEVICE_MATRIX}: the version is '1.0', but "
             f"{check_device.STATISTICS_HEADER} has '2.0'"),
            (check_device.ENTRY, 'registerAsService("default")', "registerAsService(name)",
             f"{check_device.ENTRY}: has nothing like"),
            (check_device.INTERFACE, '    name: "vendor', '    owner: "vendor',
             f"{check_device.INTERFACE}: no hidl_interface has name"),
            (check_device.MODULES, 'relative_install_path: "hw"',
             'relative_install_path: "wifi"', script, check_device.MODULES),
            (check_device.MODULES, 'init_rc: [":vendor', 'init_rc: [":other',
             check_device.MODULES, check_device.DEVICE_MODULES),
            (check_device.MODULES, '    vintf_fragments: ', '    required: ',
             check_device.MODULES, "vintf_fragments"),
            (check_device.DEVICE_MODULES, '-service.xml"]', '-service.html"]',
             check_device.DEVICE_MODULES, check_device.MODULES),
            (check_device.SOCKETS, "/data/vendor/net/control/sockets/", "/data/misc/net/",
             script, check_device.SOCKETS),
            (check_device.REPORT, "/data/vendor/net/control/sockets", "/data/misc/net",
             script, check_device.REPORT),
        ))

    def test_arguments_of_the_service_are_found_and_its_options_still_compared(self):
        self.change(check_device.SCRIPT, (f"/{check_device.DAEMON}\n", f"/{check_device.DAEMON} -v\n"),
                    ("class hal", "class early_hal"))
        complaints = check_device.check(self.root)
        self.assertEqual(len(complaints), 2, complaints)
        self.assertRegex(complaints[0], r"\.rc:\d+: the service has arguments")
        self.assertIn("the class is 'early_hal'", complaints[1])

    def test_an_option_without_its_arguments_is_found(self):
        for option in ("interface", "user", "group", "class"):
            with self.subTest(option):
                self.write(check_device.SCRIPT, re.sub(rf"(?m)^    {option} .*", f"    {option}",
                                                       self.OWN[check_device.SCRIPT]))
                self.assertRegex(check_device.check(self.root)[0], rf"\.rc:\d+: {option} takes ")

    def test_a_second_service_and_one_without_a_program_are_found(self):
        with open(os.path.join(self.root, check_device.SCRIPT), encoding="utf-8") as file:
            text = file.read()
        self.write(check_device.SCRIPT, text + "service other /vendor/bin/other\n")
        self.assert_complains(check_device.check(self.root), "has 2 services")
        self.write(check_device.SCRIPT, text.replace(
            f"/vendor/bin/hw/{check_device.DAEMON}\n", "\n"))
        self.assert_complains(check_device.check(self.root), "is no 'service NAME PATH'")

    def test_modules_that_can_not_be_read_are_named(self):
        for path in (check_device.MODULES, check_device.DEVICE_MODULES, check_device.INTERFACE):
            with self.subTest(path):
                self.change(path, ("{\n    name:", "[\n    name:"))
                complaints = check_device.check(self.root)
                self.change(path, ("[\n    name:", "{\n    name:"))
                self.assertEqual(complaints.count(f"{path}: expected {{, found ["), 1, complaints)

    def test_another_instance_is_missed_in_script_manifest_and_matrix(self):
        self.change(check_device.ENTRY, ('registerAsService("default")', 'registerAsService("main")'))
        complaints = check_device.check(self.root)
        self.assertEqual(len(complaints), 3, complaints)
        for complaint, place in zip(complaints, (check_device.SCRIPT, check_device.MANIFEST,
                                                 check_device.FRAMEWORK_MATRIX)):
            self.assertTrue(complaint.startswith(place), complaint)
            self.assertIn(check_device.ENTRY, complaint)
            self.assertIn("main", complaint)

    def test_a_second_service_in_the_manifest_is_found(self):
        self.change(check_device.MANIFEST, ("</manifest>", """    <hal format="hidl">
        <name>vendor.corvid.hardware.other</name>
        <transport>hwbinder</transport>
        <fqname>@1.0::IOther/default</fqname>
    </hal>
</manifest>"""))
        complaints = check_device.check(self.root)
        self.assertEqual(len(complaints), 2, complaints)
        self.assertIn("vendor.corvid.hardware.wifi, vendor.corvid.hardware.other", complaints[0])
        self.assertIn(check_device.INTERFACE, complaints[0])
        self.assertIn("@1.0::IWifi/default, @1.0::IOther/default", complaints[1])

    def test_without_a_look_for_indexes_only_the_sockets_group_is_needed(self):
        self.change(check_device.INDEXES, ("if_nametoindex(", "indexOf("))
        before = "radio inet"
        for groups in ("radio system", "radio inet", "radio"):
            with self.subTest(groups):
                self.change(check_device.SCRIPT, (f"group {before}\n", f"group {groups}\n"))
                before = groups
                complaints = check_device.check(self.root)
                if groups == "radio":
                    self.assertEqual(complaints, [])
                else:
                    self.assert_complains(complaints, check_device.SCRIPT, "needs none",
                                          check_device.INDEXES)

    def test_another_user_throughout_the_script_names_who_has_the_first(self):
        before = "radio"
        for user, place in (("system", f"which is 1000 in {check_device.NUMBERS}, but "
                                       f"{check_device.WORDS} has wifi=1001"),
                            ("wlan", f"kIds in {check_device.NUMBERS} has no such user")):
            with self.subTest(user):
                self.change(check_device.SCRIPT, (f" {before} {before}\n", f" {user} {user}\n"),
                            (f"user {before}", f"user {user}"), (f"group {before}", f"group {user}"))
                before = user
                complaints = check_device.check(self.root)
                self.assertEqual(len(complaints), 2, complaints)
                for complaint, part in zip(complaints, (place, check_device.PAGE)):
                    self.assertIn(f"{check_device.SCRIPT}:", complaint)
                    self.assertIn(f"the user is {user!r}", complaint)
                    self.assertIn(part, complaint)

    def test_another_user_than_the_folders_owner_names_both(self):
        self.change(check_device.SCRIPT, ("user radio", "user system"))
        complaints = check_device.check(self.root)
        self.assertIn("the folder's owner is 'radio'", complaints[-1])
        self.assertIn("(user) has 'system'", complaints[-1])

    def test_a_folder_that_the_script_does_not_make_names_all_who_look_there(self):
        with open(os.path.join(self.root, check_device.SCRIPT), encoding="utf-8") as file:
            self.write(check_device.SCRIPT, file.read().replace("control/sockets", "control/socket"))
        complaints = check_device.check(self.root)
        self.assertEqual(len(complaints), 2, complaints)
        for complaint, place in zip(complaints, (check_device.SOCKETS, check_device.REPORT)):
            self.assertIn(check_device.SCRIPT, complaint)
            self.assertIn(place, complaint)

    def test_a_missing_file_is_named(self):
        for path in (check_device.SCRIPT, check_device.MANIFEST, check_device.SOCKETS):
            with self.subTest(path):
                os.rename(os.path.join(self.root, path), os.path.join(self.root, "away"))
                self.assertIn(f"{path}: is missing", check_device.check(self.root))
                os.rename(os.path.join(self.root, "away"), os.path.join(self.root, path))


class IntegrationTest(CopiedTreeTest):

    def setUp(self):
        super().setUp()
        self.copy(path for path in source_tree.files(TREE)
                  if path.split(os.sep)[0] in source_tree.DAEMON_FOLDERS + ("device", "docs")
                  or os.path.basename(path) == "Android.bp"
                  or path in (check_device.REPORT, check_device.NUMBERS, check_device.WORDS,
                              "interface/current.txt", "tests/sepolicy/platform.te"))

    def test_page_that_agrees_is_fine(self):
        self.assertEqual(check_integration.check(self.root), [])

    def test_what_is_only_on_the_page_or_only_in_the_tree_names_both(self):
        page = check_device.PAGE
        self.assert_each_complains(check_integration.check, (
            (page, "`libbase`", "`libutils`", page, "libbase", "Android.bp"),
            (page, "`client/WpaClient.cpp`", "`client/Gone.cpp`", page, "client/Gone.cpp"),
            (page, "wifi/device/sepolicy ", "wifi/device/selinux ", page, "names device/selinux"),
            (page, "DEVICE_MATRIX_FILE +=", "MATRIX_FILE +=", page, "to DEVICE_MATRIX_FILE",
             check_device.DEVICE_MATRIX),
            (page, "-service.policy`", "-service.rc`", page, "does not say what device/",
             "-service.policy is for"),
            (page, "txpower.enable.sta=", "txpower.enabled=", page, "txpower.enabled",
             "config/CorvidWifiProperties.h"),
            (page, "ctl.restart vendor.", "ctl.restart ", page, check_device.SCRIPT),
            (page, "## 5.", "word " * 1100 + "\n## 5.", page, "two sheets"),
            (page, "+= corvid-wifi ", "+= corvid-wlan corvid-wifi ", page, "corvid-wlan",
             "no Android.bp"),
            (page, " corvidwifi_tools_test ", " ", page, "corvidwifi_tools_test",
             "tests/Android.bp"),
            (page, "vendor/VtsHalCorvidWifiV1_0TargetTest/", "vendor/VtsHal/", page, "VtsHal,"),
            (page, "`DRIVER SET_TXPOWER 9`", "`DRIVER SET_TXPOWER`", page, "'DRIVER SET_TXPOWER'",
             "managers/TxPowerManager.cpp:", "another text"),
            (page, "65535  0 4", "65535 0 4", page, "DRIVER SET_AC_CONFIG",
             "managers/DevParamsManager.cpp:"),
            (page, "center_freq1=", "center=", page, "managers/ChannelSwitchCommand.cpp:"),
            (page, "P2P_SET_NOA 255 0 100", "P2P_SET_NOA 255 0", page, "managers/NoaManager.cpp:"),
            (page, "0x001374, 74;", "0x001374, 75;", page, "managers/TxChainManager.cpp"),
            (page, "Failed to register as a service.", "Failed to register.", page,
             "'service: Failed to register.'", "service.cpp"),
            (page, "`TxPowerManager: STA", "`TxPower: STA", page, "TxPower.cpp"),
            (page, "[WPA-STA] Connected to", "[WPA-STA] Attached to", page, "Attached to"),
            (page, "Lines of the log", "What lines of the log say", page, "below 'Lines of the log'"),
            (check_device.DEVICE_MODULES, "filegroup {", "filegroup = {",
             f"{check_device.DEVICE_MODULES}: line 2"),
            ("service/service.cpp", "Failed to register as", "Can not register as", page,
             "service.cpp"),
            (page, "`FREQUENCY=`", "`FREQ=`", page, "names FREQ=", "managers/"),
            (page, "`ip_address=`", "`address6=`", page, "names address6="),
            ("managers/support/StationSignal.cpp", '"SIGNAL_POLL"', '"SIGNAL_MONITOR"', page,
             "names SIGNAL_POLL,"),
            (page, "CTRL-EVENT-ASSOC-STARTED", "CTRL-EVENT-ASSOCIATION", page,
             "CTRL-EVENT-ASSOCIATION", "client/WpaEvents.cpp"),
            (page, "freq=5200 ifname=wlan0 width=80", "freq=5200 width=80", page, "sscanf()"),
            (page, "`ctrl_interface=/", "`ctrl_interface=/other/", page, check_device.SOCKETS),
            (page, "`grep -rl /", "`grep -rl /data/vendor/other/", page, "/data/vendor/other/",
             check_device.SOCKETS),
            ("client/Android.bp", 'CLIENT_DIR="/', 'CLIENT_DIR="/other/', "client/Android.bp",
             "CONFIG_CTRL_IFACE_CLIENT_DIR", check_device.SOCKETS),
            (page, "debug vendor.corvid.hardware.wifi@1.0", "debug vendor.corvid.hardware.wifi@1.1",
             page, "@1.1::IWifi/default", check_device.ENTRY),
        ))

    def test_a_program_without_a_name_is_found(self):
        self.change("tools/Android.bp", ('    name: "corvid-wifi"', '    stem: "corvid-wifi"'))
        self.assertIn("tools/Android.bp: a cc_binary has no name", check_integration.check(self.root))

    def test_a_command_of_another_name_is_missed_on_both_sides(self):
        for path, old, new in ((check_device.PAGE, "`DRIVER SET_TXPOWER 9`", "`DRIVER SET_POWER 9`"),
                               ("managers/TxPowerManager.cpp", '"DRIVER SET_TXPOWER ',
                                '"DRIVER SET_POWER ')):
            with self.subTest(path):
                self.change(path, (old, new))
                complaints = check_integration.check(self.root)
                self.change(path, (new, old))
                self.assertTrue(any(re.search("shows the command 'DRIVER SET_.*no source sends it",
                                              complaint) for complaint in complaints), complaints)
                self.assertRegex(complaints[-1], "does not show DRIVER SET_(TX)?POWER, which "
                                                 "managers/TxPowerManager.cpp:")


class SeccompTest(TreeTest):
    """On a library of one source, with a policy of a few lines."""

    def setUp(self):
        super().setUp()
        self.write(check_seccomp.POLICY, "# Some.\nopenat: 1\n\n# More.\nread: 1\n")
        self.write(check_seccomp.HOST_POLICY, "# A host's.\nopen: 1\n")
        self.write("os/Source.cpp", "// Compiled as C.")
        for folder in source_tree.DAEMON_FOLDERS:
            self.write(f"lib/libcorvidwifi_{folder}.a", "!<arch>\n")
        self.build("")

    def build(self, text):
        """The library of os/ is made of that source behind one that makes the policy's calls, the
        others are empty."""
        self.write("lib/source.c", "int opendir(void); int strlen(void); int read(void);"
                                   "int g(void) { return opendir() + strlen() + read(); }" + text)
        subprocess.run(["cc", "-w", "-fno-builtin", "-c", "-o", "Source.cpp.o", "lib/source.c"],
                       cwd=self.root, check=True)
        subprocess.run(["ar", "rc", "lib/libcorvidwifi_os.a", "Source.cpp.o"], cwd=self.root,
                       check=True)

    def check(self, **tables):
        return check_seccomp.check(self.root, self.root, **{"libraries": {}, "start": {}, **tables})

    def test_policy_with_each_call_is_fine(self):
        self.assertEqual(self.check(), [])

    def test_a_call_that_nobody_makes_is_found(self):
        self.write(check_seccomp.POLICY, "openat: 1\nread: 1\nptrace: 1\nexecve: 1\n")
        complaints = self.check(start={"execve": "some other program"})
        self.assertEqual(len(complaints), 3, complaints)
        for complaint, part in zip(complaints, ("lacks #execve, but START", ":3: ptrace: no source",
                                                ":4: execve: no source")):
            self.assertIn(check_seccomp.POLICY, complaint)
            self.assertIn(part, complaint)
            self.assertIn("tests/structure/check_seccomp.py", complaint)

    def test_a_call_that_both_policies_have_is_found(self):
        self.write(check_seccomp.HOST_POLICY, "open: 1\nread: 1\n")
        self.assert_complains(self.check(), f"{check_seccomp.HOST_POLICY}: read",
                              f"{check_seccomp.POLICY}:5")

    def test_a_call_of_others_that_the_policy_lacks_is_found(self):
        bind = {"bind": "libnl gives an address"}
        self.assert_complains(self.check(libraries=bind), f"{check_seccomp.POLICY}: lacks bind",
                              "libnl gives an address", "tests/structure/check_seccomp.py")
        self.write(check_seccomp.POLICY, "openat: 1\nread: 1\nbind: 1\n#mmap: 1\n")
        self.assertEqual(self.check(libraries=bind, start={"mmap": "a linker"}), [])
        self.assert_complains(self.check(libraries=bind), f"{check_seccomp.POLICY}:4: #mmap")

    def test_a_call_that_the_policy_lacks_is_found(self):
        for function, call in (("nanosleep", "nanosleep"), ("poll", "ppoll"),
                               ("fprintf", "write"), ("pthread_rwlock_wrlock", "futex"),
                               ("__poll_chk", "ppoll"), ("closedir", "close"),
                               ("_ZNSt6thread15_M_start_threadESt10unique_ptr", "clone")):
            with self.subTest(function):
                self.build(f"int {function}(void); int f(void) {{ return {function}(); }}")
                self.assert_complains(self.check(), check_seccomp.POLICY, f"lacks {call}",
                                      "os/Source.cpp", function)

    def test_each_of_several_calls_that_the_policy_lacks_is_found(self):
        for function, calls in (("if_nametoindex", ("close", "ioctl", "socket")),
                                ("gmtime_r", ("close", "lseek"))):
            with self.subTest(function):
                self.build(f"int {function}(void); int f(void) {{ return {function}(); }}")
                complaints = self.check()
                self.assertEqual(len(complaints), len(calls), complaints)
                for call, complaint in zip(calls, complaints):
                    self.assertIn(f"lacks {call}, but os/Source.cpp calls {function}()", complaint)

    def test_a_function_that_nobody_has_looked_up_is_found(self):
        self.build("int getaddrinfo(void); int f(void) { return getaddrinfo(); }")
        self.assert_complains(self.check(), "os/Source.cpp", "getaddrinfo()",
                              "tests/structure/check_seccomp.py")

    def test_functions_of_others_are_not_looked_up(self):
        self.build("int nl_recv(void); int _Unwind_Resume(void);"
                   "int f(void) { return nl_recv() + _Unwind_Resume(); }")
        self.assertEqual(self.check(), [])

    def test_each_source_of_the_name_is_told(self):
        self.write("os/more/Source.cpp", "")
        self.build("int nanosleep(void); int f(void) { return nanosleep(); }")
        (complaint,) = self.check()
        self.assertRegex(complaint, "but os/(more/)?Source.cpp or os/(more/)?Source.cpp calls")

    def test_a_line_that_minijail_would_not_take_on_arm64_is_found(self):
        for line, complaint in (("epoll_wait: 1", "no system call epoll_wait"),
                                ("read: 1", "read is there twice"),
                                ("write 1", "is no 'CALL: 1'"),
                                # for an integrator to take the "#" away
                                ("#epoll_wait: 1", "no system call epoll_wait"),
                                ("#read: 1", "read is there twice"),
                                ("#write 1", "is no 'CALL: 1'")):
            with self.subTest(line):
                self.write(check_seccomp.POLICY, f"# Some.\n\nopenat: 1\nread: 1\n{line}\n")
                self.assert_complains(self.check(), f"{check_seccomp.POLICY}:5", complaint)

    def test_a_call_in_a_comment_is_not_allowed(self):
        self.write(check_seccomp.POLICY, "# Some.\nopenat: 1\n#read: 1\n")
        self.assert_complains(self.check(start={"read": "a linker"}), "lacks read")

    def test_a_build_that_is_not_there_is_no_success(self):
        os.remove(os.path.join(self.root, "lib/libcorvidwifi_service.a"))
        self.assertIsNone(self.check())


class WordsTest(TreeTest):

    def check(self, text):
        self.write("a.txt", "One line.\n" + text + "\n")
        return check_words.check(self.root)

    def test_ordinary_text_is_fine(self):
        for text in ("see host/root/HostRoot.h", "${ROOT}/home/x", "/tmp/name.XXXXXX", "=======",
                     "a <<<<<<< b", "/data/vendor/wifi/wpa/sockets/", "/dev/opt/x",
                     "todo list", "-----BEGIN CERTIFICATE-----"):
            with self.subTest(text):
                self.assertEqual(self.check(text), [])

    def test_unwanted_words_are_found(self):
        for text in ("/" + "home/me/x", "cd /" + "root/x", "<" * 7 + " HEAD", ">" * 7 + " topic",
                     "// TO" + "DO: later", "FIX" + "ME", "DO NOT SUB" + "MIT",
                     "/" + "mnt/disk", "file:///" + "home/.x", "C:\\" + "Users\\me",
                     "-----BEGIN EC PRIVATE K" + "EY-----", "# to" + "do: later", "T" + "BD",
                     "NO" + "COMMIT"):
            with self.subTest(text):
                self.assert_complains(self.check(text), "a.txt:2: ")

    def test_files_that_a_merge_leaves_behind_are_found(self):
        for name in ("os/Poll.cpp.orig", "os/Poll.cpp.rej"):
            with self.subTest(name):
                self.write(name, "")
                self.assert_complains(self.check("fine"), name)
                os.unlink(os.path.join(self.root, name))

    def test_files_that_only_sound_like_it_are_fine(self):
        self.write("os/orig", "")
        self.write("os/Poll.original", "")
        self.assertEqual(self.check("fine"), [])

    def test_what_is_no_text_is_left_alone(self):
        self.write("a.bin", "\0/" + "home/me/x")
        self.assertEqual(self.check("fine"), [])

    def test_no_files_are_no_success(self):
        self.assert_complains(check_words.check(self.root), "no files")


class FormatTest(TreeTest):

    def test_a_formatted_source_is_accepted(self):
        self.write("os/A.cpp", "int a = 1;\n")
        self.assertEqual(check_format.check(self.root), [])

    def test_a_badly_formatted_source_is_named(self):
        self.write("os/A.cpp", "int a = 1;\n")
        self.write("os/B.h", "int   b = 1;\n")
        self.assert_complains(check_format.check(self.root), "os/B.h:1")

    def test_a_tree_without_sources_is_no_tree(self):
        self.assert_complains(check_format.check(self.root), "no sources")


class TidyTest(TreeTest):
    """With a build folder in which os/A.cpp, which includes os/A.h, has been compiled."""

    def setUp(self):
        super().setUp()
        self.write(".clang-tidy", "Checks: '-*,modernize-use-nullptr'\nWarningsAsErrors: '*'\n"
                                  "HeaderFilterRegex: '.*'\n")
        self.write("os/A.h", "inline int* a() { return nullptr; }\n")
        self.write("os/A.cpp", "#include \"A.h\"\nint* b() { return a(); }\n")
        self.build_folder = os.path.join(self.root, "build")
        source = os.path.join(self.root, "os/A.cpp")
        self.write("build/build.ninja",
                   "rule cc\n command = c++ -MD -MF $out.d -o $out -c $in\n deps = gcc\n"
                   f" depfile = $out.d\nbuild A.o: cc {source}\n")
        self.write("build/compile_commands.json", json.dumps([{
            "directory": self.build_folder,
            "command": f"c++ -o A.o -c {source}",
            "file": source,
        }]))
        self.compile()

    def compile(self):
        subprocess.run(["ninja", "-C", self.build_folder], capture_output=True, check=True)

    def check(self):
        return check_tidy.check(self.root, self.build_folder, "os/A.cpp")

    def test_a_tidy_source_is_accepted_again_and_again(self):
        self.assertEqual(self.check(), [])
        self.assertEqual(self.check(), [])

    def test_a_source_becomes_untidy(self):
        self.assertEqual(self.check(), [])
        self.write("os/A.cpp", "#include \"A.h\"\nint* b() { return 0; }\n")
        self.assert_complains(self.check(), "A.cpp:2", "use nullptr")
        self.assert_complains(self.check(), "A.cpp:2", "use nullptr")

    def test_a_header_becomes_untidy(self):
        self.assertEqual(self.check(), [])
        self.write("os/A.h", "inline int* a() { return 0; }\n")
        self.assert_complains(self.check(), "A.h:1", "use nullptr")

    def test_a_source_that_nobody_compiles_is_named(self):
        self.assert_complains(
            check_tidy.check(self.root, self.build_folder, "os/B.cpp"), "os/B.cpp", "not compiled")


if __name__ == "__main__":
    unittest.main()
