"""What an integrator gets: the source archive, the installed files and the Debian package, which is
installed in a root folder without any other trace of the project, and removed again."""

import os
import re
import shutil
import tarfile
from pathlib import Path

import pytest

import programs
from console import PROGRAM_DIR, SOURCE_DIR

# The build that the programs come from.
BUILD = PROGRAM_DIR.parent if PROGRAM_DIR.name == "emulated" else PROGRAM_DIR
pytestmark = pytest.mark.skipif(
    not (BUILD / "CMakeCache.txt").exists(), reason="packages are made from a CMake build"
)

PATIENCE = 600
LONG_AGO = 1_000_000_000
WORK = BUILD / "package"
PACKAGE = "tessel"
REGISTERED = ["/bin/tessel", "/usr/bin/tessel"]
PATH = "/usr/sbin:/usr/bin:/sbin:/bin"

PAGES = {"device.md", "firmware.md", "integration.md", "login.md", "security.md"}


def run(*command, **options):
    """Runs a command that must succeed. Returns its output."""
    done = programs.run(
        [str(word) for word in command],
        stdout=programs.PIPE,
        stderr=programs.STDOUT,
        text=True,
        timeout=PATIENCE,
        check=False,
        **options,
    )
    assert done.returncode == 0, f"{command}\n{done.stdout}"
    return done.stdout


def project_version():
    listing = (SOURCE_DIR / "CMakeLists.txt").read_text()
    return re.search(r"project\(tessel VERSION (\S+)", listing).group(1)


def tracked_files():
    """Returns the source files, committed or new."""
    listed = run(
        "git",
        "-c",
        "safe.directory=*",
        "-C",
        SOURCE_DIR,
        "ls-files",
        "--cached",
        "--others",
        "--exclude-standard",
    )
    return {name for name in listed.splitlines() if (SOURCE_DIR / name).is_file()}


def files_in(archive):
    """Returns the files in a source archive, without the name of its top folder."""
    folder = archive.name[: -len(".tar.gz")] + "/"
    with tarfile.open(archive) as opened:
        names = [member.name for member in opened if not member.isdir()]
    assert all(name.startswith(folder) for name in names), "everything must be in one folder"
    return {name[len(folder) :] for name in names}


def files_below(folder):
    return {
        str(path.relative_to(folder))
        for path in folder.rglob("*")
        if path.is_symlink() or not path.is_dir()
    }


@pytest.fixture(scope="module", name="archive")
def fixture_archive():
    run("cmake", "--build", BUILD, "--target", "package_source")
    return BUILD / f"tessel-{project_version()}.tar.gz"


def documented_packages():
    """Returns the packages that docs/integration.md names: for a build, and for making a package."""
    page = read_text(SOURCE_DIR / "docs/integration.md")
    lines = re.findall(r"^    apt-get install --no-install-recommends (.*)", page, re.MULTILINE)
    for_build, for_package = (line.split() for line in lines)
    return for_build, for_package


@pytest.fixture(scope="module", name="workshop")
def fixture_workshop(tmp_path_factory):
    """A root folder with Debian's essential packages and those needed to build the shell."""
    listed = run("dpkg-query", "-W", "-f", "${Essential} ${Package}\n").splitlines()
    essential = [line.split()[1] for line in listed if line.startswith("yes")]
    for_build, _ = documented_packages()
    return ThrowawayRoot(tmp_path_factory.mktemp("workshop"), [*essential, *for_build])


@pytest.fixture(scope="module", name="build")
def fixture_build(archive, workshop):
    """A build of the unpacked source archive, without options, with only the documented packages. It
    is kept, so that the next run compiles it only if the archive has changed."""
    source = WORK / "source"
    unpacked = WORK / archive.name
    if not unpacked.exists() or unpacked.read_bytes() != archive.read_bytes():
        shutil.rmtree(source, ignore_errors=True)
        source.mkdir(parents=True)
        # The archive's own times are always the same.
        run("tar", "-C", source, "--touch", "-xf", archive)
        shutil.copy(archive, unpacked)
    build = WORK / "device"
    workshop.run(
        "cmake", "-S", source / archive.name[: -len(".tar.gz")], "-B", build, shared=WORK
    )
    workshop.run("cmake", "--build", build, "-j2", shared=WORK)
    return build


@pytest.fixture(scope="module", name="package")
def fixture_package(build, workshop):
    """The Debian package, made from that build with only the packages documented for this."""
    for old in build.glob("*.deb"):
        old.unlink()
    _, for_package = documented_packages()
    workshop.add(for_package)
    workshop.run("sh", "-c", f"cd '{build}' && cpack", shared=WORK)
    (package,) = build.glob("*.deb")
    return package


# The program

PROPERTIES = {
    "position-independent": r"FLAGS_1\).*PIE",
    "read-only relocations": r"(?m)^ *GNU_RELRO ",
    "immediate binding": r"FLAGS_1\).*NOW",
    "non-executable stack": r"(?m)^ *GNU_STACK .* RW  *0x",
    "stack protector": r" __stack_chk_fail(@|$)",
    "fortified": r" __(printf|snprintf|fgets|read|memcpy|fprintf)_chk(@|$)",
}


@pytest.mark.parametrize("hardening", PROPERTIES)
def test_the_program_is_hardened(build, hardening):
    facts = run("readelf", "--wide", "--program-headers", "--dynamic", "--dyn-syms", build / "tessel")
    assert re.search(PROPERTIES[hardening], facts)


def test_the_program_needs_no_more_than_readline_and_the_c_library(build):
    facts = run("readelf", "--wide", "--dynamic", build / "tessel")
    needed = re.findall(r"\(NEEDED\).*\[(.*?)\.so", facts)
    assert "libreadline" in needed
    assert [name for name in needed if not re.match(r"lib(readline|c|m)$|ld-linux", name)] == []


def test_the_same_sources_in_another_folder_make_the_same_program(build):
    """With the C++ library linked in, and with the shared one."""
    here = WORK / "here"
    environment = {name: value for name, value in os.environ.items() if not name.endswith("FLAGS")}

    def program_in(folder, *arguments):
        run("cmake", *arguments, env=environment)
        run("cmake", "--build", folder, "-j2", "--target", "tessel")
        return (folder / "tessel").read_bytes()

    assert program_in(here, "-S", SOURCE_DIR, "-B", here, "-UTESSEL_STATIC_CXX") == program_in(build, build)
    shared = "-DTESSEL_STATIC_CXX=OFF"
    try:
        assert program_in(here, shared, here) == program_in(build, shared, build)
    finally:
        program_in(build, "-UTESSEL_STATIC_CXX", build)


# The sources


def test_the_source_archive_holds_the_sources_and_nothing_else(archive):
    assert files_in(archive) == tracked_files()


def test_the_source_archive_builds_itself_again(archive, build):
    run("cmake", "--build", build, "--target", "package_source")
    assert files_in(build / archive.name) == files_in(archive)


def test_only_the_change_log_and_the_manual_page_repeat_the_version():
    version = project_version()
    others = {
        name
        for name in tracked_files() - {"CMakeLists.txt"}
        if re.search(rf"(?<![\d.]){re.escape(version)}(?![\d.])", read_text(SOURCE_DIR / name))
    }
    assert others <= {"CHANGELOG.md", "docs/tessel.8"}


def read_text(path):
    return path.read_text(encoding="utf-8", errors="replace")


def test_the_change_log_begins_with_the_version():
    first = re.search(r"^## (.*)$", read_text(SOURCE_DIR / "CHANGELOG.md"), re.MULTILINE).group(1)
    assert re.fullmatch(rf"{re.escape(project_version())} \(\d{{4}}-\d\d-\d\d\)", first)


def test_the_manual_page_names_the_version():
    page = read_text(SOURCE_DIR / "docs/tessel.8")
    assert f"\nThis page describes version {project_version()}.\n" in page


def test_the_licence_is_the_gpl_3():
    licence = Path("/usr/share/common-licenses/GPL-3").read_bytes()
    assert (SOURCE_DIR / "COPYING").read_bytes() == licence


# Installation


def installed_files(prefix, bin_folder="bin", man="share/man", doc="share/doc/tessel"):
    return {
        f"{prefix}/{bin_folder}/tessel",
        f"{prefix}/{man}/man8/tessel.8",
        *(f"{prefix}/{doc}/{name}" for name in ("CHANGELOG.md", "COPYING")),
        *(f"{prefix}/{doc}/docs/{name}" for name in PAGES),
    }


def test_install_honours_prefix_and_destdir(build, tmp_path):
    run(
        "cmake",
        "--install",
        build,
        "--prefix",
        "/opt/x",
        env={**os.environ, "DESTDIR": str(tmp_path)},
    )
    assert files_below(tmp_path) == installed_files("opt/x")


def test_developers_documents_are_an_optional_component(build, tmp_path):
    run("cmake", "--install", build, "--prefix", tmp_path, "--component", "developers")
    documents = {path.name for path in (SOURCE_DIR / "docs").glob("*.[ms][dv]*")} - PAGES
    assert documents > {"testing.md", "session.svg"}
    folder = "share/doc/tessel"
    assert files_below(tmp_path) == {
        *(f"{folder}/{name}" for name in ("README.md", "CONTRIBUTING.md")),
        *(f"{folder}/docs/{name}" for name in documents),
    }


def test_installed_pages_link_to_installed_pages():
    for name in PAGES:
        links = re.findall(r"\]\(([^):#]+)", read_text(SOURCE_DIR / "docs" / name))
        assert set(links) <= PAGES, name


def test_install_honours_other_folders(build, tmp_path):
    folders = {"BINDIR": "sbin", "MANDIR": "man", "DOCDIR": "doc"}
    names = [f"CMAKE_INSTALL_{name}" for name in folders]
    try:
        run("cmake", *(f"-D{name}={value}" for name, value in zip(names, folders.values())), build)
        run("cmake", "--install", build, "--prefix", tmp_path / "x")
    finally:
        run("cmake", *(f"-U{name}" for name in names), build)
    assert files_below(tmp_path) == installed_files("x", "sbin", "man", "doc")


# The package


def test_the_same_sources_make_the_same_packages(archive, build, package):
    """Even if the files' times differ."""
    for path in (build / "tessel", *(WORK / "source").rglob("*")):
        os.utime(path, (LONG_AGO, LONG_AGO))
    again = WORK / "again"
    shutil.rmtree(again, ignore_errors=True)
    run("cpack", "-B", again, cwd=build)
    run("cpack", "-B", again, "--config", "CPackSourceConfig.cmake", cwd=build)
    for made in (archive, package):
        assert (again / made.name).read_bytes() == made.read_bytes()


def expect_lintian_accepts(package):
    output = run(
        "lintian",
        "--allow-root",
        "--pedantic",
        "-I",
        "--fail-on",
        "error,warning,info,pedantic",
        package,
        env={**os.environ, "LC_ALL": "C.UTF-8"},
    )
    findings = [line for line in output.splitlines() if "root privileges" not in line]
    assert findings == []


def test_lintian_accepts_the_package(package):
    expect_lintian_accepts(package)


@pytest.mark.parametrize(
    "arch, kind",
    [
        pytest.param("armhf", "ARM", marks=pytest.mark.target("armhf")),
        pytest.param("i386", "Intel 80386", marks=pytest.mark.target("i386")),
    ],
)
def test_the_package_of_a_32_bit_device(arch, kind, tmp_path):
    run("cpack", "-B", tmp_path, cwd=SOURCE_DIR / "build" / arch)
    package = tmp_path / f"tessel_{project_version()}-1_{arch}.deb"
    assert run("dpkg-deb", "-f", package, "Architecture").strip() == arch
    depends = run("dpkg-deb", "-f", package, "Depends")
    assert re.fullmatch(r"libc6 \(>= 2\.\d+\), libreadline8t64 \| libreadline8\n", depends)
    run("dpkg-deb", "-x", package, tmp_path / "tree")
    assert kind in run("readelf", "-h", tmp_path / "tree/usr/bin/tessel")
    expect_lintian_accepts(package)


def test_the_package_holds_what_is_installed(package, tmp_path):
    run("dpkg-deb", "-x", package, tmp_path)
    documents = "usr/share/doc/tessel"
    expected = installed_files("usr") - {
        "usr/share/man/man8/tessel.8",
        f"{documents}/COPYING",
        f"{documents}/CHANGELOG.md",
    }
    expected |= {
        "usr/share/man/man8/tessel.8.gz",
        "usr/share/lintian/overrides/tessel",
        *(f"{documents}/{name}" for name in ("copyright", "changelog.gz", "changelog.Debian.gz")),
    }
    assert files_below(tmp_path) == expected
    version = run("dpkg-deb", "-f", package, "Version").strip()
    assert version == project_version() + "-1"


class ThrowawayRoot:
    """A root folder with a package manager, some packages and their dependencies, copied from the
    host's installed packages. Commands run in a sandbox in it, as root there, so they need no rights
    on the host and do not change it."""

    NEEDED = (
        "dpkg",
        "dash",
        "debianutils",
        "coreutils",
        "sed",
        "grep",
        "tar",
        "libc-bin",
        "diffutils",
    )
    # Without the packages that boot a system.
    LEFT_OUT = ("/usr/share/doc/", "/usr/share/man/", "/usr/share/locale/", "/usr/share/info/")

    def __init__(self, folder, packages):
        self.folder = folder
        for name in ("bin", "sbin", "lib", "lib64"):
            (folder / "usr" / name).mkdir(parents=True)
            (folder / name).symlink_to(f"usr/{name}")
        for name in ("dev", "proc", "tmp", "etc", "var/log"):
            (folder / name).mkdir(parents=True, exist_ok=True)
        for name in ("info", "updates", "triggers", "parts"):
            (folder / "var/lib/dpkg" / name).mkdir(parents=True)
        self._held = []
        self.add([*self.NEEDED, *packages])
        (folder / "var/lib/dpkg/info/format").write_text("1\n")
        if not (folder / "bin/sh").exists():
            (folder / "bin/sh").symlink_to("dash")
        (folder / "etc/shells").write_text("# /etc/shells: valid login shells\n/bin/sh\n")
        (folder / "etc/passwd").write_text("root:x:0:0:root:/root:/bin/sh\n")
        (folder / "etc/group").write_text("root:x:0:\n")
        self.run("dpkg", "--configure", "--pending")

    def add(self, packages):
        """Adds these packages and their dependencies, as installed."""
        for package in self._closure(packages):
            if package not in self._held:
                self._copy(package)
                self._held.append(package)
        status = run("dpkg-query", "-s", *self._held)
        (self.folder / "var/lib/dpkg/status").write_text(status + "\n")

    @staticmethod
    def _closure(wanted):
        """Returns the full names of these packages of the host and of their dependencies."""
        packages = {}
        listed = run(
            "dpkg-query", "-W", "-f", "${binary:Package}\t${Pre-Depends}, ${Depends}\t${Provides}\n"
        )
        for line in listed.splitlines():
            full, depends, provides = line.split("\t")
            for name in (
                full.split(":")[0],
                *re.findall(r"[a-z0-9][a-z0-9.+-]*(?= \(|,|$)", provides),
            ):
                packages.setdefault(name, (full, depends))
        found = {}
        wanted = list(wanted)
        while wanted:
            alternatives = [
                re.match(r"[a-z0-9.+-]*", word.strip()).group() for word in wanted.pop().split("|")
            ]
            known = [name for name in alternatives if name in packages]
            if known and packages[known[0]][0] not in found:
                full, depends = packages[known[0]]
                found[full] = True
                wanted += [word for word in depends.split(",") if word.strip()]
        return list(found)

    def _copy(self, package):
        info = Path("/var/lib/dpkg/info")
        for path in info.glob(f"{package}.*"):
            shutil.copy2(path, self.folder / "var/lib/dpkg/info")
        for name in (info / f"{package}.list").read_text().splitlines():
            source, target = Path(name), self.folder / name.lstrip("/")
            if name.startswith(self.LEFT_OUT) or not (source.is_symlink() or source.exists()):
                continue
            if source.is_dir() and not source.is_symlink():
                target.mkdir(parents=True, exist_ok=True)
            elif not target.exists() and os.access(source, os.R_OK):
                target.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy2(source, target, follow_symlinks=False)

    def run(self, *command, status=0, shared=None, **options):
        """Runs a command in the root. Returns its output. A shared folder of the host has the same path
        in the root."""
        done = programs.run(
            [
                "bwrap",
                "--unshare-all",
                "--unshare-user",
                "--uid",
                "0",
                "--gid",
                "0",
                "--cap-add",
                "ALL",
                "--die-with-parent",
                "--bind",
                self.folder,
                "/",
                "--dev",
                "/dev",
                "--proc",
                "/proc",
                *(["--bind", shared, shared] if shared else []),
                "--chdir",
                "/",
                "env",
                "-i",
                f"PATH={PATH}",
                "HOME=/root",
                "LC_ALL=C",
                "TERM=dumb",
                *command,
            ],
            stdout=programs.PIPE,
            stderr=programs.STDOUT,
            text=True,
            timeout=PATIENCE,
            check=False,
            **options,
        )
        assert done.returncode == status, f"{command}\n{done.stdout}"
        return done.stdout

    def install(self, package):
        shutil.copy(package, self.folder / "tmp/package.deb")
        output = self.run("dpkg", "--force-unsafe-io", "-i", "/tmp/package.deb")
        (self.folder / "tmp/package.deb").unlink()
        assert "warning" not in output and "error" not in output, output
        assert self.run("dpkg", "--audit") == ""

    def shells(self):
        return [
            line
            for line in (self.folder / "etc/shells").read_text().splitlines()
            if PACKAGE in line
        ]

    def snapshot(self):
        """Returns {path: content} of every file except the package manager's database."""
        return {
            name: path.read_bytes()
            if path.is_file() and not path.is_symlink()
            else os.readlink(path)
            for name in files_below(self.folder)
            if not name.startswith(("var/lib/dpkg/", "var/log/", "var/cache/"))
            for path in [self.folder / name]
        }


@pytest.fixture(scope="module", name="newer_package")
def fixture_newer_package(package, tmp_path_factory):
    """The same package with a higher version."""
    folder = tmp_path_factory.mktemp("newer")
    run("dpkg-deb", "-R", package, folder / "tree")
    control = folder / "tree/DEBIAN/control"
    control.write_text(re.sub(r"(?m)^Version: .*$", "Version: 999.0-1", control.read_text()))
    run("dpkg-deb", "--root-owner-group", "-b", folder / "tree", folder / "newer.deb")
    return folder / "newer.deb"


@pytest.fixture(name="root")
def fixture_root(package, tmp_path):
    dependencies = run("dpkg-deb", "-f", package, "Depends").split(",")
    return ThrowawayRoot(tmp_path / "root", dependencies)


def test_the_package_installs_upgrades_and_purges_cleanly(root, package, newer_package):
    before = root.snapshot()
    root.install(package)
    assert root.shells() == REGISTERED
    assert root.run("dpkg", "--verify", PACKAGE) == ""
    # It starts with only the package's dependencies; without a device nobody can log in.
    screen = root.run("tessel", status=1, input="")
    assert screen.startswith("Please, login as an Administrator\n\nUsername: ")

    root.install(newer_package)
    assert root.shells() == REGISTERED
    assert "Version: 999.0-1" in root.run("dpkg", "-s", PACKAGE)

    root.run("dpkg", "--remove", PACKAGE)
    assert root.shells() == []
    root.install(package)
    assert root.shells() == REGISTERED
    output = root.run("dpkg", "--purge", PACKAGE)
    assert "warning" not in output and "not empty" not in output, output
    after = root.snapshot()
    assert after == before


def test_a_shell_that_cannot_be_removed_stays_registered(root, package):
    """prerm has unregistered it before the removal fails; postinst registers it again."""
    root.install(package)
    root.run("/var/lib/dpkg/info/tessel.prerm", "remove")
    assert root.shells() == []
    root.run("/var/lib/dpkg/info/tessel.postinst", "abort-remove")
    assert root.shells() == REGISTERED
