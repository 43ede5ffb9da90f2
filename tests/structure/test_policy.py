#!/usr/bin/env python3
"""Shows that check_policy.py can fail, and that it doesn't when it shouldn't. Apart from the other
checks, since each way to fail is a policy to compile."""

import os
import re
import shutil
import unittest

import check_device
import check_policy
from check_seccomp import POLICY as SECCOMP
from test_checks import TreeTest


class PolicyTest(TreeTest):
    """On a copy of the tree's policy and sources."""

    TE = "device/sepolicy/hal_corvid_wifi_default.te"

    def setUp(self):
        super().setUp()
        tree = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
        for folder in ("device", "tests/sepolicy", "os", "config", "client", "managers",
                       "service"):
            shutil.copytree(os.path.join(tree, folder), os.path.join(self.root, folder))

    def read(self, path):
        with open(os.path.join(self.root, path), encoding="utf-8") as file:
            return file.read()

    def complaints_with(self, path, old, new, thorough=False):
        """What is complained of when the file has `new` for `old`."""
        text = self.read(path)
        self.assertIn(old, text)
        self.write(path, text.replace(old, new))
        complaints = check_policy.check(self.root, thorough)
        self.write(path, text)
        return complaints

    def test_the_trees_policy_is_fine(self):
        self.assertEqual(check_policy.check(self.root), [])

    def test_a_rule_without_a_reason_is_found(self):
        complaints = self.complaints_with(self.TE, "# client/WpaClient.cpp: lstat\n",
                                          "# Because.\n")
        self.assertEqual(len(complaints), 2, complaints)
        self.assertIn("client/WpaClient.cpp:", complaints[0])
        self.assertIn("says which code needs it", complaints[1])

    def test_a_statement_that_nobody_expects_is_found(self):
        for statement in (f"permissive {check_policy.DAEMON};",
                          "type_transition init shell_exec:process hal_corvid_wifi_default;",
                          f"dontaudit {check_policy.DAEMON} self:file write;",
                          f"typeattribute {check_policy.DAEMON} mlstrustedsubject;",
                          f"userdebug_or_eng(`permissive {check_policy.DAEMON};')",
                          "if (mode) { allow init self:file write; }", "dnl"):
            # also behind another statement in its line
            for before in ("", f"type other, domain; get_prop({check_policy.DAEMON}, a_prop) "):
                for path in (self.TE, "device/sepolicy/attributes"):
                    with self.subTest(statement, before=before, path=path):
                        text = self.read(path)
                        self.write(path, text + "\n# service/service.cpp: main\n"
                                   f"{before}{statement}\n")
                        complaints = check_policy.check_statements(self.root, path, set())
                        self.write(path, text)
                        self.assertTrue(complaints)
                        self.assertIn(f"{path}:{len(text.splitlines()) + 3}: '{statement[:6]}",
                                      complaints[0])
                        self.assertIn("none of the STATEMENTS in tests/structure/check_policy.py",
                                      complaints[0])

    def test_a_rule_about_others_alone_is_found(self):
        rule = "allow headset_app wpa_data_file:file read;"
        self.write(self.TE, self.read(self.TE) + f"\n# service/service.cpp: main\n{rule}\n")
        self.assert_complains(check_policy.check_reasons(self.root), self.TE, rule[:-1],
                              "gives others what is not the daemon's")

    def test_each_rule_of_a_line_needs_a_reason(self):
        rule = "allow a_corvid_wifi self:file { read }"
        for path in (self.TE, "device/sepolicy/attributes"):
            with self.subTest(path):
                text = self.read(path)
                # a rule of several lines, too
                self.write(path, f"{text}\ntype a, domain; {rule.replace(' ', chr(10) + ' ')};\n")
                complaints = check_policy.check_reasons(self.root)
                self.write(path, text)
                self.assert_complains(complaints, f"{path}:{len(text.splitlines()) + 2}: '{rule}'",
                                      "says which code needs it")

    def test_a_rule_whose_code_is_gone_is_found(self):
        for old, new, part in (
                ("# client/Nl80211Client.cpp: genl_connect", "# client/Gone.cpp: genl_connect",
                 "there is no client/Gone.cpp"),
                ("Client.cpp: NL80211_CMD_VENDOR", "Client.cpp: NL80211_CMD_ROAM",
                 "has no such word"),
                # a word that stands in a comment only
                ("Client.cpp: NL80211_CMD_VENDOR", "Client.cpp: FLAG", "has no such word")):
            with self.subTest(new):
                self.write("client/Nl80211Client.cpp",
                           self.read("client/Nl80211Client.cpp") + "// A FLAG.\n/* FLAG */\n")
                self.assertTrue(any(part in complaint and self.TE in complaint for complaint in
                                    self.complaints_with(self.TE, old, new)))

    def test_code_without_a_rule_is_found(self):
        for file in ("managers/New.cpp", "os/New.h"):
            for call in ('system("reboot");', 'FILE* f = fopen("/data/x", "w");',
                         "::open(path, 0);", "return open(path, 0);", 'std::rename("a", "b");',
                         "IStats::getService();", "std::ofstream out(path);",
                         "std::filesystem::remove(path);",
                         "namespace fs = std::filesystem; fs::remove(path);"):
                with self.subTest(call, file=file):
                    self.write(file, f"// One line.\nvoid f() {{ {call} }}\n")
                    self.assert_complains(check_policy.check_reasons(self.root), f"{file}:2",
                                          "needs a rule", "device/sepolicy")
            os.remove(os.path.join(self.root, file))

    def test_a_function_of_the_sources_own_needs_no_rule(self):
        for text in ("bool Door::open(int key) {}\n", "class Door {\n  bool open(int key);\n};\n",
                     "template <typename T>\nstd::vector<T>& open(T t);\n",
                     "returned_t open(int key);\n", "// unlike open(path)\n",
                     "#include <filesystem>\nstd::filesystem::path place();\n"):
            with self.subTest(text):
                self.write("os/New.h", text)
                self.assertEqual(check_policy.check_reasons(self.root), [])

    def test_the_systems_function_beside_one_that_is_called_like_it_is_found(self):
        for call in ('::open("/data/x", 0);', 'std::rename("a", "b");'):
            with self.subTest(call):
                self.write("os/New.cpp", "bool Door::open(int key) {}\nbool Door::rename() {}\n"
                           f"void f() {{ {call} }}\n")
                self.assert_complains(check_policy.check_reasons(self.root), "os/New.cpp:3",
                                      "needs a rule")

    def test_a_call_that_is_returned_is_no_declaration(self):
        for call in ("return open(path, 0);", "else open(path, 0);"):
            with self.subTest(call):
                self.write("os/New.cpp", f"void f() {{ {call} }}\n")
                self.assert_complains(check_policy.check_reasons(self.root), "os/New.cpp:1",
                                      "needs a rule")

    def test_a_wider_rule_is_found(self):
        reason = "# service/service.cpp: main\n"
        for rule, part in (
                (f"allow {check_policy.DAEMON} wpa_data_file:dir rename;", "dir rename"),
                (f"allow {check_policy.DAEMON} self:capability net_raw;", "neverallow"),
                ("set_prop(shell, vendor_corvid_wifi_prop)", "neverallow")):
            with self.subTest(rule):
                complaints = self.complaints_with(self.TE, "# What no later",
                                                  f"{reason}{rule}\n\n# What no later")
                self.assert_complains(complaints, part, "device/sepolicy")

    def test_a_hals_server_would_come_under_what_the_platform_forbids_them(self):
        rule = f"hal_server_domain({check_policy.DAEMON}, hal_corvid_wifi)\n"
        complaints = self.complaints_with(self.TE, "# What no later", rule + "# What no later")
        self.assertEqual(len(complaints), 2, complaints)
        self.assertIn("none of the STATEMENTS", complaints[0])
        self.assertRegex(complaints[1], r"neverallow on line \d+ of tests/sepolicy/platform.te")

    def test_a_neverallow_that_is_hit_is_named_by_its_place(self):
        neverallow = f"neverallow {check_policy.DAEMON} property_type:property_service set;"
        complaints = self.complaints_with(
            self.TE, neverallow,
            f"# service/service.cpp: main\nset_prop({check_policy.DAEMON}, default_prop)\n"
            f"{neverallow}")
        line = self.read(self.TE).splitlines().index(neverallow) + 3
        self.assert_complains(complaints, f"neverallow on line {line} of {self.TE}")

    def test_another_capability_in_the_init_script_is_found(self):
        for now in ("NET_ADMIN NET_RAW", "SYS_NICE"):
            with self.subTest(now):
                self.assert_complains(
                    self.complaints_with(check_device.SCRIPT, "capabilities NET_ADMIN",
                                         f"capabilities {now}"),
                    check_device.SCRIPT, now.split()[-1].lower(), "device/sepolicy", "net_admin")

    def test_a_right_that_the_code_needs_is_missed(self):
        self.assert_complains(
            self.complaints_with(self.TE, "{ getattr open read search watch }",
                                 "{ getattr open read search }"),
            "does not give", "wpa_data_file:dir watch")

    def test_a_right_that_others_need_is_missed(self):
        for path, rule, *parts in (
                ("device/sepolicy/hal_corvid_wifi.te",
                 "binder_call(hal_corvid_wifi_client, hal_corvid_wifi_default)\n",
                 "hal_corvid_wifi_client hal_corvid_wifi_default:binder call"),
                ("device/sepolicy/hal_corvid_wifi.te",
                 "hal_client_domain(dumpstate, hal_corvid_wifi)\n", "clients are ['headset_app']"),
                (self.TE, "allow hal_wifi_supplicant_server hal_corvid_wifi_default:"
                 "unix_dgram_socket sendto;\n", "hal_wifi_supplicant_server", "sendto")):
            with self.subTest(rule):
                complaints = self.complaints_with(path, rule, "", thorough=True)
                self.assertTrue(complaints and all(part in complaints[0] for part in parts),
                                complaints)

    def test_rights_that_others_do_not_need_are_found(self):
        given = ("headset_app hal_corvid_wifi_default:process signal",
                 "headset_app hal_corvid_wifi_default_exec:file write",
                 "headset_app vendor_corvid_wifi_prop:file read",
                 # to every type of an attribute that one of the daemon's has
                 "hal_corvid_wifi_client exec_type:file getattr",
                 # to clients, with what is none of the daemon's
                 "hal_corvid_wifi_client wpa_data_file:file write")
        rules = "".join(f"allow {rule};\n" for rule in given)
        complaints = self.complaints_with(self.TE, "# What no later",
                                          f"# service/service.cpp: main\n{rules}\n# What no later",
                                          thorough=True)
        self.assertEqual(len(complaints), len(given), complaints)
        for rule in given:
            self.assertTrue(any(f"gives {rule}, which" in complaint for complaint in complaints),
                            (rule, complaints))

    def test_a_missing_neverallow_is_found(self):
        rule = f"neverallow {check_policy.DAEMON} self:udp_socket {{ bind connect write }};\n"
        complaints = self.complaints_with(self.TE, rule, "", thorough=True)
        self.assertEqual(len(complaints), 3, complaints)
        for permission, complaint in zip(("bind", "connect", "write"), complaints):
            self.assertIn(f"no neverallow forbids 'allow {check_policy.DAEMON} {check_policy.DAEMON}"
                          f":udp_socket {permission};'", complaint)

    def test_each_neverallow_is_tried(self):
        text = self.read(self.TE)
        found = [statement for of_line in check_policy.statements(text).values()
                 for kind, statement in of_line if kind == "neverallow"]
        self.assertGreater(len(found), 10)
        for statement in found:
            with self.subTest(statement):
                written = r"\s+".join(re.escape(word) for word in statement.split()) + ";"
                self.assertEqual(len(re.findall(written, text)), 1)
                self.write(self.TE, re.sub(written, "", text))
                self.assertNotEqual(
                    check_policy.check_neverallows(check_policy.source_of(self.root),
                                                   os.path.join(self.root, "binary")), [])

    def test_contexts_that_disagree_are_found(self):
        files = "device/sepolicy/file_contexts"
        services = "device/sepolicy/hwservice_contexts"
        for path, old, new, *parts in (
                (files, "wifi@1", "wlan@1", files + ":", "wlan", check_device.SCRIPT),
                (files, r"vendor\.corvid", "vendor.corvid", files + ":", check_device.SCRIPT),
                (files, "/(vendor", "/vendor/bin/sh u:object_r:hal_corvid_wifi_default_exec:s0\n"
                 "/(vendor", "/vendor/bin/sh", check_device.SCRIPT),
                (files, "default_exec", "default", files + ":1", "is hal_corvid_wifi_default,",
                 "device/sepolicy are about hal_corvid_wifi_default_exec"),
                (files, "hal_corvid_wifi_default_exec", "hal_corvid_wifi_hwservice", files + ":1",
                 "is hal_corvid_wifi_hwservice,"),
                (files, ":s0", "", files + ":1", "is no 'KEY"),
                (services, "IWifi", "IWlan", services + ":", "IWlan", check_device.SCRIPT),
                (services, "_hwservice:", "_default:", services + ":1",
                 "are about hal_corvid_wifi_hwservice"),
                ("device/sepolicy/property_contexts", "vendor_corvid_wifi_prop:s0 exact uint",
                 "default_prop:s0 exact uint", "is default_prop,")):
            with self.subTest(path=path, new=new):
                text = self.read(path)
                self.assertIn(old, text)
                self.write(path, text.replace(old, new, 1))
                complaints = check_policy.check_contexts(self.root)
                self.write(path, text)
                self.assert_complains(complaints, path, *parts)

    def test_a_script_that_starts_nothing_is_found(self):
        self.write(check_device.SCRIPT, "")
        complaints = check_policy.check_contexts(self.root)
        self.assertEqual(len(complaints), 2, complaints)
        for name, complaint in zip(("file_contexts", "hwservice_contexts"), complaints):
            self.assertIn(f"device/sepolicy/{name}: labels ", complaint)
            self.assertIn(f"{check_device.SCRIPT} has []", complaint)

    def test_a_file_that_no_policy_has_is_found(self):
        for path in ("device/sepolicy/service_contexts", "device/sepolicy/old/daemon.te"):
            with self.subTest(path):
                self.write(path, "corvid u:object_r:hal_corvid_wifi_hwservice:s0\n")
                self.assert_complains(check_policy.check_contexts(self.root), path, "no such file")
                os.remove(os.path.join(self.root, path))

    def test_a_policy_that_does_not_compile_is_no_success(self):
        for old, new, place in (("type hal", "typ hal", f"{self.TE}:2"),
                                ("domain(hal_corvid_wifi_default)", "domain(", self.TE)):
            with self.subTest(new):
                self.assertTrue(any("does not compile" in complaint and place in complaint
                                    for complaint in self.complaints_with(self.TE, old, new)))
        for name in ("attributes", "hwservice_contexts"):
            path = f"device/sepolicy/{name}"
            text = self.read(path)
            os.remove(os.path.join(self.root, path))
            self.assert_complains(check_policy.check(self.root), f"{path}: is not there")
            self.write(path, text)
        shutil.rmtree(os.path.join(self.root, "device/sepolicy"))
        self.assert_complains(check_policy.check(self.root), "there is no policy")

    def test_the_rules_for_a_daemon_below_minijail_compile(self):
        rule, neverallow = re.findall(r"^# +((?:allow|neverallow) .+;)$", self.read(SECCOMP),
                                      re.MULTILINE)
        plain = neverallow.replace("{ exec_type -hal_corvid_wifi_default_exec }", "exec_type")
        for forbidden, count in ((neverallow, 0), (plain, 1)):
            with self.subTest(forbidden):
                complaints = self.complaints_with(
                    self.TE, plain, f"# service/service.cpp: main\n{rule}\n\n{forbidden}")
                self.assertEqual(sum("does not compile" in complaint for complaint in complaints),
                                 count, complaints)


if __name__ == "__main__":
    unittest.main()
