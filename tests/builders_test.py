"""A firmware builder's settings reach the compiler, and no trace of the build machine the program.

Flags are read from the commands that CMake would run; the program is built only where it matters.
"""

import json
import os
import re
import shlex
import shutil
from pathlib import Path

import pytest

import programs
from console import PROGRAM_DIR, SOURCE_DIR
from package_test import run

pytestmark = pytest.mark.skipif(
    not (PROGRAM_DIR / "CMakeCache.txt").exists(), reason="the builds go next to a CMake build"
)

WORK = PROGRAM_DIR / "builders"
LIBRARIES = Path("/usr/lib") / run("g++", "-print-multiarch").strip()


def configure(folder, *options, fresh=True, **variables):
    """Configures a build in the folder. Returns CMake's output."""
    if fresh:
        shutil.rmtree(folder, ignore_errors=True)
    environment = {name: value for name, value in os.environ.items() if not name.endswith("FLAGS")}
    return run(
        "cmake", "-S", SOURCE_DIR, "-B", folder, "-G", "Ninja", *options,
        env={**environment, **variables},
    )  # fmt: skip


def compile_command(folder):
    """Returns the words of the command that compiles main.cpp."""
    commands = json.loads((folder / "compile_commands.json").read_text())
    (command,) = (one["command"] for one in commands if one["file"].endswith("shell/main.cpp"))
    return shlex.split(command)


def link_command(folder):
    return shlex.split(run("ninja", "-C", folder, "-t", "commands", "tessel").splitlines()[-1])


def last(words, pattern):
    """Returns the last word that matches, which is the one that takes effect."""
    found = [word for word in words if re.fullmatch(pattern, word)]
    return found[-1] if found else None


def facts_of(program):
    return run("readelf", "--wide", "--file-header", "--dynamic", program)


@pytest.fixture(name="folder")
def fixture_folder(tmp_path):
    return tmp_path / "build"


# Without settings of the builder


def test_defaults(folder):
    configure(folder)
    words = compile_command(folder)
    assert last(words, "-O.*") == "-Os"
    for word in ("-D_FORTIFY_SOURCE=2", "-fstack-protector-strong", "-fPIE", "-std=c++17", "-DNDEBUG"):
        assert word in words
    for word in ("-Wl,-z,relro,-z,now,-z,noexecstack", "-pie", "-static-libstdc++"):
        assert word in link_command(folder)


# With settings of the builder


@pytest.mark.parametrize(
    "options, variables, wins",
    [
        (["-DCMAKE_CXX_FLAGS_RELEASE=-DNDEBUG"], {"CXXFLAGS": "-O2"}, "-O2"),
        (["-DCMAKE_CXX_FLAGS_RELEASE=-DNDEBUG", "-DCMAKE_CXX_FLAGS=-O1"], {}, "-O1"),
        (["-DCMAKE_CXX_FLAGS_RELEASE=-O3 -DNDEBUG"], {}, "-O3"),
        (["-DCMAKE_BUILD_TYPE=None"], {"CXXFLAGS": "-g -O2"}, "-O2"),
        ([], {"CXXFLAGS": "-O2"}, "-O2"),
        (["-DCMAKE_CXX_FLAGS=-O2"], {}, "-O2"),
        (["-DCMAKE_CXX_FLAGS_RELEASE=-DNDEBUG"], {}, None),
    ],
)
def test_the_builders_optimisation_wins(folder, options, variables, wins):
    configure(folder, *options, **variables)
    assert last(compile_command(folder), "-O.*") == wins


def test_the_builders_optimisation_wins_in_a_toolchain_file(folder, tmp_path):
    toolchain = tmp_path / "toolchain.cmake"
    toolchain.write_text('set(CMAKE_CXX_FLAGS_RELEASE "-DNDEBUG" CACHE STRING "")\n')
    configure(folder, f"-DCMAKE_TOOLCHAIN_FILE={toolchain}", CXXFLAGS="-O2")
    assert last(compile_command(folder), "-O.*") == "-O2"


@pytest.mark.parametrize(
    "flags, pattern, wins",
    [
        ("-O2 -D_FORTIFY_SOURCE=3", "-[DU]_FORTIFY_SOURCE.*", "-D_FORTIFY_SOURCE=3"),
        ("-O2 -Wp,-D_FORTIFY_SOURCE=1", "-[DU]_FORTIFY_SOURCE.*", None),
        ("-O2 -U_FORTIFY_SOURCE", "-[DU]_FORTIFY_SOURCE.*", "-U_FORTIFY_SOURCE"),
        ("-O0", "-[DU]_FORTIFY_SOURCE.*", None),
        ("-fno-stack-protector", "-f(no-)?stack-protector.*", "-fno-stack-protector"),
        ("-fPIC", "-f(no-)?pi[ce]", "-fPIC"),
    ],
)
def test_the_builders_hardening_wins(folder, flags, pattern, wins):
    configure(folder, f"-DCMAKE_CXX_FLAGS={flags}")
    assert last(compile_command(folder), f"(?i){pattern}") == wins


def test_changed_flags_are_checked_again(folder):
    configure(folder)
    configure(folder, "-DCMAKE_CXX_FLAGS=-D_FORTIFY_SOURCE=3", fresh=False)
    assert "-D_FORTIFY_SOURCE=2" not in compile_command(folder)


def test_the_builders_link_options_win(folder):
    configure(folder, "-DCMAKE_EXE_LINKER_FLAGS=-no-pie -Wl,-z,lazy")
    words = link_command(folder)
    assert last(words, "-(no-)?pie") == "-no-pie"
    assert words.index("-Wl,-z,lazy") > words.index("-Wl,-z,relro,-z,now,-z,noexecstack")


@pytest.mark.parametrize("standard", ["20", "23"])
def test_the_builder_chooses_the_standard(folder, standard):
    configure(folder, f"-DCMAKE_CXX_STANDARD={standard}")
    assert last(compile_command(folder), "-std=.*") in (f"-std=c++{standard}", "-std=c++2b")


# Programs


def copy_readline(folder):
    """Copies Readline to a folder that the loader does not search. Returns the copy's folder."""
    shutil.rmtree(folder, ignore_errors=True)
    (folder / "lib").mkdir(parents=True)
    shutil.copytree("/usr/include/readline", folder / "include/readline")
    for path in LIBRARIES.glob("libreadline.so*"):
        shutil.copy2(path, folder / "lib", follow_symlinks=True)
    return folder


def test_readline_in_any_folder_and_custom_flags(tmp_path):
    """Builds without a warning, and neither program has an RPATH."""
    build = WORK / "flags"
    output = configure(
        build,
        f"-DCMAKE_PREFIX_PATH={copy_readline(WORK / 'readline')}",
        "-DCMAKE_CXX_STANDARD=20",
        "-DTESSEL_WERROR=ON",
        CXXFLAGS="-O2 -D_FORTIFY_SOURCE=3 -fstack-protector-all",
        LDFLAGS="-Wl,-z,relro",
    )
    output += run("cmake", "--build", build)
    assert "warning" not in output.lower()
    assert str(WORK / "readline") in " ".join(link_command(build))
    run("cmake", "--install", build, "--prefix", tmp_path)
    for program in (build / "tessel", tmp_path / "bin/tessel"):
        facts = facts_of(program)
        assert "libreadline.so" in facts
        assert "RPATH" not in facts and "RUNPATH" not in facts


def test_a_static_program_with_an_ncurses_without_tinfo(tmp_path):
    """It needs no library, is position-independent, and runs. OpenWrt has an empty libtinfo.a as well.
    clang compiles it, without a warning."""
    libraries = WORK / "ncurses"
    shutil.rmtree(libraries, ignore_errors=True)
    (libraries / "lib").mkdir(parents=True)
    shutil.copytree("/usr/include/readline", libraries / "include/readline")
    shutil.copy2(LIBRARIES / "libreadline.a", libraries / "lib")
    shutil.copy2(LIBRARIES / "libtinfo.a", libraries / "lib/libncursesw.a")
    run("ar", "rcs", libraries / "lib/libtinfo.a")
    build = WORK / "static"
    configure(
        build,
        "-DCMAKE_CXX_COMPILER=clang++-19",
        "-DCMAKE_CXX_FLAGS=-O0",  # compiles soonest
        "-DTESSEL_WERROR=ON",
        "-DTESSEL_STATIC=ON",
        f"-DCMAKE_PREFIX_PATH={libraries}",
        "-DCMAKE_FIND_USE_CMAKE_SYSTEM_PATH=OFF",
    )
    run("cmake", "--build", build)
    assert str(libraries / "lib/libncursesw.a") in link_command(build)
    facts = facts_of(build / "tessel")
    assert "NEEDED" not in facts and re.search(r"FLAGS_1\).*PIE", facts)
    assert "INTERP" not in run("readelf", "--program-headers", "--wide", build / "tessel")
    ended = programs.run([build / "tessel"], input=b"", capture_output=True, timeout=60)
    assert ended.returncode == 1 and ended.stdout.startswith(b"Please, login")


OLD_TIMERS = """
#include <signal.h>
#include <time.h>
int old_timer_create(clockid_t c, struct sigevent* e, timer_t* t) { return timer_create(c, e, t); }
int old_timer_settime(timer_t t, int f, const struct itimerspec* n, struct itimerspec* o)
{ return timer_settime(t, f, n, o); }
int old_timer_delete(timer_t t) { return timer_delete(t); }
"""


def test_a_c_library_with_timers_in_librt(folder, tmp_path):
    """As in glibc before 2.34. The timers have other names here, which the C library does not define."""
    (tmp_path / "rt.c").write_text(OLD_TIMERS)
    run("gcc", "-fPIC", "-c", tmp_path / "rt.c", "-o", tmp_path / "rt.o")
    run("ar", "rcs", tmp_path / "librt.a", tmp_path / "rt.o")
    renamed = " ".join(f"-D{name}=old_{name}" for name in ("timer_create", "timer_settime"))
    configure(folder, CXXFLAGS=renamed, LDFLAGS=f"-L{tmp_path}")
    assert "-lrt" in link_command(folder)
    configure(folder)
    assert "-lrt" not in link_command(folder)
