"""What Soong's module types know, as far as the Android.bp files need it: each property with the kind of
its value. Written from the platform's public reference of module types; a property that stands there and
is missing here is to be added. Soong itself is no Debian package."""

STRING = "a string"
BOOL = "true or false"
LIST = "a list of strings"
_KINDS = ((STRING, str), (BOOL, bool), (LIST, list), ("a map", dict), ("a number", int))


def _all(kind, names):
    return {name: kind for name in names.split()}


_EVERY = {
    **_all(STRING, "name owner compile_multilib"),
    **_all(BOOL, "enabled vendor proprietary soc_specific device_specific product_specific "
           "system_ext_specific recovery"),
    **_all(LIST, "defaults visibility licenses required host_required target_required init_rc "
           "vintf_fragments"),
}

_SANITIZE = {
    **_all(BOOL, "never address thread hwaddress undefined all_undefined integer_overflow cfi "
           "safestack scs scudo fuzzer memtag_heap"),
    "misc_undefined": LIST,
    "no_recover": LIST,
    "blocklist": STRING,
    "diag": {
        **_all(BOOL, "cfi integer_overflow undefined memtag_heap"),
        **_all(LIST, "misc_undefined no_recover"),
    },
    "config": {"cfi_assembly_support": BOOL},
    "recover": LIST,
}

# What depends on the target may stand there too.
_BUILD = {
    **_all(LIST, "srcs exclude_srcs cflags cppflags conlyflags asflags ldflags clang_cflags "
           "include_dirs local_include_dirs shared_libs static_libs whole_static_libs header_libs "
           "runtime_libs system_shared_libs exclude_shared_libs exclude_static_libs "
           "generated_headers generated_sources export_include_dirs export_system_include_dirs "
           "export_shared_lib_headers export_static_lib_headers export_header_lib_headers "
           "export_generated_headers"),
    **_all(STRING, "cpp_std c_std stl version_script instruction_set"),
    **_all(BOOL, "rtti gnu_extensions allow_undefined_symbols nocrt no_libcrt "
           "pack_relocations use_version_lib"),
    "sanitize": _SANITIZE,
    "strip": {**_all(BOOL, "none all keep_symbols"), "keep_symbols_list": LIST},
    "lto": _all(BOOL, "never full thin"),
}
_TARGETS = ("android android32 android64 android_arm android_arm64 host darwin linux linux_glibc "
            "linux_bionic not_windows vendor product recovery windows")
_ARCHITECTURES = "arm arm64 x86 x86_64"

_CC = {
    **_EVERY,
    **_BUILD,
    **_all(STRING, "relative_install_path sdk_version min_sdk_version stem suffix"),
    **_all(BOOL, "host_supported device_supported vendor_available product_available "
           "recovery_available ramdisk_available double_loadable native_coverage tidy "
           "installable"),
    **_all(LIST, "tidy_checks tidy_flags logtags apex_available"),
    "target": {name: {**_BUILD, "enabled": BOOL} for name in _TARGETS.split()},
    "arch": {name: {**_BUILD, "enabled": BOOL} for name in _ARCHITECTURES.split()},
    "multilib": {name: {**_BUILD, "enabled": BOOL} for name in ("lib32", "lib64")},
}
_LIBRARY = {
    **_CC,
    **_all(BOOL, "unique_host_soname"),
    **_all(LIST, "sysprop_apis"),
    "vndk": {**_all(BOOL, "enabled support_system_process private"), "extends": STRING},
    "static": _BUILD,
    "shared": _BUILD,
}
_BINARY = {**_CC, **_all(BOOL, "static_executable"), **_all(LIST, "symlinks")}
_TEST = {
    **_BINARY,
    **_all(BOOL, "gtest isolated auto_gen_config require_root no_named_install_directory "
           "disable_framework"),
    **_all(STRING, "test_config test_config_template"),
    **_all(LIST, "test_suites data data_bins data_libs test_mainline_modules"),
    "test_options": {**_all(BOOL, "unit_test"), **_all(STRING, "run_test_as"),
                     **_all(LIST, "test_suite_tag")},
}
_FUZZ = {
    **_BINARY,
    **_all(LIST, "corpus data"),
    "dictionary": STRING,
    "fuzz_config": {
        **_all(LIST, "cc hotlists libfuzzer_options hwasan_options asan_options ubsan_options"),
        **_all(BOOL, "fuzz_on_haiku_device fuzz_on_haiku_host"),
        **_all(STRING, "acknowledgement"),
    },
}

MODULES = {
    "cc_binary": _BINARY,
    "cc_defaults": {**_LIBRARY, **_TEST, **_FUZZ},
    "cc_fuzz": _FUZZ,
    "cc_library": _LIBRARY,
    "cc_library_headers": {name: kind for name, kind in _LIBRARY.items()
                           if name not in ("srcs", "static", "shared")},
    "cc_library_shared": _LIBRARY,
    "cc_library_static": _LIBRARY,
    "cc_test": _TEST,
    "genrule": {**_EVERY,
                **_all(LIST, "srcs exclude_srcs out tools tool_files export_include_dirs"),
                **_all(STRING, "cmd")},
    "filegroup": {**_EVERY, **_all(LIST, "srcs exclude_srcs"), **_all(STRING, "path")},
    "hidl_interface": {
        **_EVERY,
        "root": STRING,
        **_all(LIST, "srcs interfaces types apex_available"),
        **_all(BOOL, "gen_java gen_java_constants gen_vts odm_available"),
    },
    "hidl_package_root": {**_EVERY, "path": STRING, **_all(BOOL, "use_current require_frozen")},
}


def _kind_of(value):
    return next(name for name, kind in _KINDS if type(value) is kind)


def complaints(kind, properties):
    """What Soong would not take of a module: [text]. `kind` is its type."""
    if kind not in MODULES:
        return [f"there is no module type {kind}"]
    return list(_unknown(kind, "", properties, MODULES[kind]))


def _unknown(kind, prefix, properties, known):
    for name, value in properties.items():
        if name not in known:
            yield f"{kind} has no property {prefix}{name}"
        elif isinstance(known[name], dict):
            if isinstance(value, dict):
                yield from _unknown(kind, f"{prefix}{name}.", value, known[name])
            else:
                yield f"{prefix}{name} of {kind} is a map, not {_kind_of(value)}"
        elif _kind_of(value) != known[name]:
            yield f"{prefix}{name} of {kind} is {known[name]}, not {_kind_of(value)}"
