"""The recipes in packaging/: the CMake calls that Buildroot, OpenWrt and Yocto make from them, for ARM
without floating point, and what they install.

The builders themselves are not run. Their calls are made without a network, with no programs of the host
except those named here, without the host's headers, and for Yocto, which has a separate build folder, with
read-only sources.
"""

import hashlib
import os
import re
import shutil
import tarfile
from pathlib import Path

import pytest

import programs
from console import SOURCE_DIR
from package_test import BUILD, files_below, installed_files, project_version, run

TRIPLET = "arm-linux-gnueabi"
pytestmark = pytest.mark.target("armel")

WORK = BUILD / "recipes"
SOURCE = WORK / "source"
STAGING = WORK / "staging"
TOOLS = WORK / "tools"
# The host's programs that a builder has.
HOST_TOOLS = ("cmake", "make", "ninja", "sh", "env", "uname")
COMPILER_TOOLS = ("g++", "gcc", "ar", "ranlib", "ld", "nm", "objcopy", "objdump", "readelf", "strip")


@pytest.fixture(scope="module", name="recipes")
def fixture_recipes():
    """The recipes for a source archive, next to what a builder prepares: the unpacked sources, its
    tools, and Readline with its headers in a staging folder."""
    shutil.rmtree(WORK, ignore_errors=True)
    run("cmake", "--build", BUILD, "--target", "package_source")
    archive = BUILD / f"tessel-{project_version()}.tar.gz"
    run(SOURCE_DIR / "packaging/make_recipes", archive, WORK)
    with tarfile.open(archive) as opened:
        opened.extractall(WORK)
    (WORK / archive.name[: -len(".tar.gz")]).rename(SOURCE)
    TOOLS.mkdir()
    for tool in (*HOST_TOOLS, *(f"{TRIPLET}-{name}" for name in COMPILER_TOOLS)):
        (TOOLS / tool).symlink_to(shutil.which(tool))
    make_staging()
    return WORK


def make_staging():
    sysroot = SOURCE_DIR / "build/sysroot-armel"
    libraries = STAGING / "usr/lib"
    libraries.mkdir(parents=True)
    for name in ("libreadline", "libtinfo"):
        for path in (sysroot / "usr/lib" / TRIPLET).glob(f"{name}.*"):
            shutil.copy(path, libraries)
    shutil.copytree(sysroot / "usr/include/readline", STAGING / "usr/include/readline")
    # Debian's is a linker script with absolute paths.
    shutil.copy(libraries / "libtinfo.so.6", libraries / "libtinfo.so")


def build(script, writable, **variables):
    """Runs sh commands as a builder does, with only that folder writable."""
    hidden = ("/usr/include", "/usr/local", "/home", "/root", "/etc/apt")
    command = [shutil.which("bwrap"), "--unshare-all", "--die-with-parent", "--ro-bind", "/", "/", "--dev", "/dev"]
    for folder in hidden:
        command += ["--tmpfs", folder] if os.path.isdir(folder) else []
    # Folders below these are mounted again.
    command += ["--ro-bind", WORK, WORK, "--bind", writable, writable, "--proc", "/proc"]
    command += ["--tmpfs", "/tmp"] if not WORK.is_relative_to("/tmp") else []
    return run(
        *command, "--chdir", writable, "/bin/sh", "-e", "-c", script,
        env={"PATH": str(TOOLS), "LC_ALL": "C", **variables},
    )  # fmt: skip


def options_of(path, pattern):
    """Returns a recipe's CMake options for the shared and for the static program."""
    found = re.search(pattern, (WORK / path).read_text(), re.DOTALL)
    return {"static": found.group(1), "shared": found.group(2)}


def buildroot(folder, options):
    """In the source folder, with make; the toolchain file's system name is Buildroot."""
    modules = folder / "support/Platform"
    modules.mkdir(parents=True)
    (modules / "Buildroot.cmake").write_text("include(Platform/Linux)\nset(LINUX 1)\n")
    toolchain = folder / "support/toolchainfile.cmake"
    toolchain.write_text(f"""
list(APPEND CMAKE_MODULE_PATH {folder}/support)
set(CMAKE_SYSTEM_NAME Buildroot)
set(CMAKE_SYSTEM_VERSION 1)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_BUILD_TYPE Release CACHE STRING "")
set(CMAKE_CXX_FLAGS_RELEASE -DNDEBUG CACHE STRING "")
set(CMAKE_CXX_FLAGS "-D_LARGEFILE_SOURCE -D_FILE_OFFSET_BITS=64 -O2 -D_FORTIFY_SOURCE=1" CACHE STRING "")
set(CMAKE_EXE_LINKER_FLAGS "" CACHE STRING "")
set(CMAKE_INSTALL_SO_NO_EXE 0)
set(CMAKE_SYSROOT {STAGING})
set(CMAKE_FIND_ROOT_PATH {STAGING})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_C_COMPILER {TOOLS}/{TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER {TOOLS}/{TRIPLET}-g++)
""")
    source = folder / "tessel"
    shutil.copytree(SOURCE, source)
    output = build(
        f"cd {source}\n"
        f"cmake {source} -DCMAKE_TOOLCHAIN_FILE={toolchain} -DCMAKE_INSTALL_PREFIX=/usr"
        " -DCMAKE_INSTALL_RUNSTATEDIR=/run -DCMAKE_COLOR_MAKEFILE=OFF -DBUILD_DOC=OFF"
        " -DBUILD_DOCS=OFF -DBUILD_EXAMPLE=OFF -DBUILD_EXAMPLES=OFF -DBUILD_TEST=OFF"
        f" -DBUILD_TESTS=OFF -DBUILD_TESTING=OFF -DBUILD_SHARED_LIBS=ON {options}\n"
        f"make -j2\nmake install/fast DESTDIR={folder}/target",
        folder,
    )
    return output, source


def openwrt(folder, options):
    """In the source folder, without a toolchain file and without a sysroot; some flags come from the
    environment."""
    flags = "-Os -pipe -fno-caller-saves -Wp,-D_FORTIFY_SOURCE=1 -fstack-protector"
    link = f"-L{STAGING}/usr/lib -L{STAGING}/lib -znow -zrelro"
    source = folder / "tessel"
    shutil.copytree(SOURCE, source)
    output = build(
        f"cd {source}\n"
        "cmake --no-warn-unused-cli -DCMAKE_SYSTEM_NAME=Linux -DCMAKE_SYSTEM_VERSION=1"
        " -DCMAKE_SYSTEM_PROCESSOR=arm -DCMAKE_BUILD_TYPE=Release -DCMAKE_C_FLAGS_RELEASE=-DNDEBUG"
        " -DCMAKE_CXX_FLAGS_RELEASE=-DNDEBUG -DCMAKE_C_COMPILER_LAUNCHER="
        f" -DCMAKE_C_COMPILER={TOOLS}/{TRIPLET}-gcc -DCMAKE_CXX_COMPILER_LAUNCHER="
        f" -DCMAKE_CXX_COMPILER={TOOLS}/{TRIPLET}-g++ -DCMAKE_ASM_COMPILER_LAUNCHER="
        f" -DCMAKE_ASM_COMPILER={TOOLS}/{TRIPLET}-gcc '-DCMAKE_EXE_LINKER_FLAGS:STRING={link}'"
        f" -DCMAKE_AR={TOOLS}/{TRIPLET}-ar -DCMAKE_NM={TOOLS}/{TRIPLET}-nm"
        f" -DCMAKE_RANLIB={TOOLS}/{TRIPLET}-ranlib '-DCMAKE_FIND_ROOT_PATH={STAGING}/usr;{TOOLS}'"
        " -DCMAKE_FIND_ROOT_PATH_MODE_PROGRAM=NEVER -DCMAKE_FIND_ROOT_PATH_MODE_LIBRARY=ONLY"
        " -DCMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY -DCMAKE_STRIP=: -DCMAKE_INSTALL_PREFIX=/usr"
        f" -DDL_LIBRARY={STAGING} -DCMAKE_PREFIX_PATH={STAGING} -DCMAKE_SKIP_RPATH=TRUE"
        " -DCMAKE_EXPORT_PACKAGE_REGISTRY=FALSE -DCMAKE_EXPORT_NO_PACKAGE_REGISTRY=TRUE"
        " -DCMAKE_FIND_USE_PACKAGE_REGISTRY=FALSE -DCMAKE_FIND_USE_SYSTEM_PACKAGE_REGISTRY=FALSE"
        f" -DCMAKE_GENERATOR=Ninja '-DCMAKE_C_FLAGS={flags}' {options} {source}\n"
        f"ninja -C {source}\nDESTDIR={folder}/target ninja -C {source} install",
        folder,
        CFLAGS=flags,
        CXXFLAGS=flags,
        LDFLAGS=link,
    )
    return output, source


def yocto(folder, options):
    """The sysroot and the hardening are flags in a generated toolchain file, and programs are looked for
    only in the builder's folder of tools."""
    toolchain = folder / "toolchain.cmake"
    maps = f"-fmacro-prefix-map={SOURCE}=/usr/src/debug -fdebug-prefix-map={SOURCE}=/usr/src/debug"
    flags = (
        f"--sysroot={STAGING} -fstack-protector-strong -O2 -D_FORTIFY_SOURCE=2 -Wformat"
        f" -Wformat-security -Werror=format-security -pipe -g {maps}"
        f" -fdebug-prefix-map={folder}=/usr/src/debug -fdebug-prefix-map={STAGING}= -fdebug-prefix-map=/usr/lib="
    )
    toolchain.write_text(f"""
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER {TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER {TRIPLET}-g++)
set(CMAKE_C_COMPILER_LAUNCHER)
set(CMAKE_CXX_COMPILER_LAUNCHER)
set(CMAKE_ASM_COMPILER {TRIPLET}-gcc)
find_program(CMAKE_AR {TRIPLET}-ar DOC "Archiver" REQUIRED)
set(CMAKE_C_FLAGS "{flags}" CACHE STRING "")
set(CMAKE_CXX_FLAGS "{flags}" CACHE STRING "")
set(CMAKE_CXX_FLAGS_RELEASE "-DNDEBUG" CACHE STRING "")
set(CMAKE_CXX_LINK_FLAGS "{flags} -Wl,-O1 -Wl,--hash-style=gnu -Wl,--as-needed -Wl,-z,relro,-z,now"
    CACHE STRING "")
set(CMAKE_FIND_ROOT_PATH {STAGING} {TOOLS})
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_PROGRAM_PATH "/")
set(CMAKE_INSTALL_RPATH)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
set(CMAKE_LIBRARY_PATH /usr/lib /lib)
list(APPEND CMAKE_CXX_IMPLICIT_INCLUDE_DIRECTORIES /usr/include)
""")
    folders = {
        "BINDIR": "bin", "SBINDIR": "sbin", "LIBEXECDIR": "libexec", "SYSCONFDIR": "/etc",
        "SHAREDSTATEDIR": "../com", "LOCALSTATEDIR": "/var", "LIBDIR": "lib",
        "INCLUDEDIR": "include", "DATAROOTDIR": "share",
    }  # fmt: skip
    (folder / "build").mkdir()
    installs = " ".join(f"-DCMAKE_INSTALL_{name}:PATH={value}" for name, value in folders.items())
    output = build(
        f"cd {folder}/build\n"
        f"cmake -G Ninja -DCMAKE_MAKE_PROGRAM=ninja {SOURCE}"
        f" -DCMAKE_INSTALL_PREFIX:PATH=/usr {installs} -DPYTHON_EXECUTABLE:PATH=python3 -DLIB_SUFFIX="
        f" -DCMAKE_INSTALL_SO_NO_EXE=0 -DCMAKE_TOOLCHAIN_FILE:FILEPATH={toolchain}"
        " -DCMAKE_NO_SYSTEM_FROM_IMPORTED=1 -DCMAKE_EXPORT_NO_PACKAGE_REGISTRY=ON"
        f" -DFETCHCONTENT_FULLY_DISCONNECTED=ON {options} -Wno-dev\n"
        f"cmake --build {folder}/build --target all\n"
        f"DESTDIR={folder}/target cmake --build {folder}/build --target install",
        folder,
    )
    return output, folder / "build"


BUILDERS = {
    "buildroot": (
        buildroot,
        "buildroot/tessel.mk",
        r"_STATIC\),y\)\nTESSEL_CONF_OPTS = (\S+)\nelse\nTESSEL_CONF_OPTS = (\S+)\nendif",
    ),
    "openwrt": (
        openwrt,
        "openwrt/Makefile",
        r"CMAKE_OPTIONS \+= \$\(if \$\(CONFIG_TESSEL_STATIC\),([^,]+),([^,)]+)\)",
    ),
    "yocto": (
        yocto,
        f"yocto/tessel_{project_version()}.bb",
        r'PACKAGECONFIG\[static\] = "([^,]+),([^,]+),',
    ),
}


def make(name, linkage, place):
    builder, recipe, pattern = BUILDERS[name]
    folder = WORK / place
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    output, built = builder(folder, options_of(recipe, pattern)[linkage])
    assert not re.search(r"\.(cpp|h):\d+.*warning", output), output
    return folder / "target", built / "tessel"


@pytest.mark.parametrize("name", BUILDERS)
def test_installed_files_are_right_and_reproducible(recipes, name):
    target, built = make(name, "shared", f"{name}-shared")
    assert files_below(target) == installed_files("usr")
    program = target / "usr/bin/tessel"
    for path in (built, program):
        facts = run("readelf", "--wide", "--all", path)
        assert re.search(r"Machine: +ARM\n", facts) and "soft-float ABI" in facts
        assert "RPATH" not in facts and "RUNPATH" not in facts and "TEXTREL" not in facts
        assert "GNU_HASH" in facts and ".symtab" in facts
        needed = set(re.findall(r"\(NEEDED\).*\[(.*)\]", facts))
        assert needed <= {
            "libreadline.so.8", "libtinfo.so.6", "libstdc++.so.6", "libgcc_s.so.1", "libc.so.6",
            "libm.so.6", "ld-linux.so.3",
        }  # fmt: skip
        assert {"libreadline.so.8", "libstdc++.so.6"} <= needed
        # The functions with 32-bit times have these names.
        undefined = set(re.findall(r"UND (\w+)", facts))
        assert not undefined & {"time", "stat", "localtime", "timer_settime", "gettimeofday"}
    for path in target.rglob("*"):
        if path.is_file():
            assert str(BUILD).encode() not in path.read_bytes(), path
            assert b"/usr/lib/gcc" not in path.read_bytes(), path
    again, _ = make(name, "shared", f"{name}-once-more")
    for path in files_below(target):
        assert (target / path).read_bytes() == (again / path).read_bytes(), path


@pytest.mark.parametrize("name", BUILDERS)
def test_one_static_file(recipes, name):
    target, _ = make(name, "static", f"{name}-static")
    facts = run("readelf", "--wide", "--dynamic", "--program-headers", target / "usr/bin/tessel")
    assert "NEEDED" not in facts and "INTERP" not in facts


def test_the_recipes_contain_the_archives_version_and_checksums(recipes):
    version = project_version()
    archive = (BUILD / f"tessel-{version}.tar.gz").read_bytes()
    licence = (SOURCE_DIR / "COPYING").read_bytes()
    sums = {name: (WORK / BUILDERS[name][1]).read_text() for name in BUILDERS}
    sums["buildroot"] += (WORK / "buildroot/tessel.hash").read_text()
    for text in sums.values():
        assert hashlib.sha256(archive).hexdigest() in text
        assert "@" not in text.replace("tessel@lists", "")
    assert hashlib.sha256(licence).hexdigest() in sums["buildroot"]
    assert hashlib.md5(licence).hexdigest() in sums["yocto"]
    assert f"TESSEL_VERSION = {version}\n" in sums["buildroot"]
    assert f"PKG_VERSION:={version}\n" in sums["openwrt"]


@pytest.mark.parametrize("name", BUILDERS)
def test_a_recipe_adds_the_shell_to_etc_shells_once(recipes, name, tmp_path):
    text = (WORK / BUILDERS[name][1]).read_text()
    pattern = {
        "buildroot": r"define TESSEL_ADD_TO_SHELLS\n(.*?)endef",
        "openwrt": r"define Package/tessel/postinst\n(.*?)endef",
        "yocto": r"pkg_postinst:\$\{PN\} \(\) \{\n(.*?)\n\}",
    }[name]
    script = re.search(pattern, text, re.DOTALL).group(1).replace("\\\n", " ")
    for variable, value in {
        "$(TARGET_DIR)": str(tmp_path), "$${IPKG_INSTROOT}": str(tmp_path), "$D": str(tmp_path),
        "${sysconfdir}": "/etc", "${bindir}": "/usr/bin",
    }.items():  # fmt: skip
        script = script.replace(variable, value)
    (tmp_path / "etc").mkdir()
    (tmp_path / "etc/shells").write_text("/bin/sh\n")
    for _ in range(2):
        programs.run(["/bin/sh", "-e", "-c", script], check=True)
        assert (tmp_path / "etc/shells").read_text() == "/bin/sh\n/usr/bin/tessel\n"
