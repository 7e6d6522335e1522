"""Write into wheels what they carry of others: a table, licences, and where the sources are.

    python tools/carried_licences.py --libraries FOLDER:FOLDER... WHEEL...

Run after auditwheel has copied the shared libraries into the wheels, on the machine that they came
from: each is traced to its Debian package, whose copyright file goes into the wheel.
"""

import argparse
import hashlib
import importlib.metadata
import re
import subprocess
import sys
import tempfile
from pathlib import Path

NAME = "talvorix"
COMMON = Path("/usr/share/common-licenses")
# Header libraries, of which parts are compiled into the module itself.
HEADERS = {"libeigen3-dev": "Eigen", "libnanoflann-dev": "nanoflann"}
LICENCE = "Classifier: License :: OSI Approved :: "
OWN, AS_A_WHOLE = "MIT License", "GNU General Public License v3 or later (GPLv3+)"

INTRODUCTION = """\
# What this wheel carries

The code of {name} itself is under the MIT licence. The libraries below lie beside it as they come
from Debian, or are compiled into it. FFTW and parts of SuiteSparse are under the GNU General Public
License, version 2 or later, and METIS is under the Apache License 2.0, which only version 3 of the
former allows beside it. So **whoever passes this wheel on does so under the GPL, version 3**, and
has to hand out or offer the sources that it was made of: those of {name}, and those below. Where
its sources are still to be had from Debian, `apt-get source PACKAGE=VERSION` fetches them.

`third_party/` holds the copyright file of each package, and the licences that they refer to. The
last column names what is in a file's fields; not all of it need be about the library.

| library | package | source package | licences |
| --- | --- | --- | --- |
"""


def output_of(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout


def origin(carried, folders):
    """The file of the system that auditwheel copied, whose hash it put into the name.

    Parameters
    ----------
    carried : pathlib.Path
        The copy, named `libceres-d24ea251.so.2.1.0` or alike.
    folders : list of pathlib.Path
        Where the system's libraries are.

    Returns
    -------
    pathlib.Path
        As the package names it.

    Raises
    ------
    SystemExit
        When no folder has it, or only one with other contents.
    """
    match = re.fullmatch(r"(.+)-([0-9a-f]{8})(\.so.*)", carried.name)
    if match is None:
        sys.exit(f"carried_licences: {carried.name} is not named as auditwheel names its copies")
    name, digest = match[1] + match[3], match[2]
    for folder in folders:
        path = folder / name
        if path.is_file() and hashlib.sha256(path.read_bytes()).hexdigest().startswith(digest):
            return path.resolve()
    where = ", ".join(map(str, folders))
    sys.exit(f"carried_licences: {carried.name} was not copied from a {name} in {where}")


def package_of(path):
    """The Debian package that `path` belongs to; /lib and /usr/lib may be one folder."""
    for known_as in (str(path), str(path).removeprefix("/usr")):
        found = subprocess.run(
            ["dpkg", "-S", known_as], capture_output=True, text=True, check=False
        )
        if found.returncode == 0:
            return found.stdout.split(":")[0]
    sys.exit(f"carried_licences: no Debian package owns {path}; its licence is unknown")


def licences_in(text):
    """The names in the licence fields of a machine-readable copyright file, in their order."""
    if not text.startswith("Format:"):
        return "see its copyright file"
    names = re.findall(r"^License: *(\S.*)$", text, flags=re.MULTILINE)
    return ", ".join(dict.fromkeys(names)) or "see its copyright file"


def copy_of_copyright(package, folder):
    """Copy the package's copyright file and the common licences it refers to; return its text."""
    text = Path("/usr/share/doc", package, "copyright").read_text(encoding="utf-8")
    own = folder / package
    own.mkdir(parents=True, exist_ok=True)
    (own / "copyright").write_text(text, encoding="utf-8")
    for name in set(re.findall(rf"{COMMON}/([A-Za-z0-9.-]*[A-Za-z0-9])", text)):
        if (COMMON / name).is_file():
            common = folder / "common-licenses" / name
            common.parent.mkdir(exist_ok=True)
            common.write_bytes((COMMON / name).read_bytes())
    return text


def row(library, package, folder):
    text = copy_of_copyright(package, folder)
    fields = "${Version}\t${source:Package}\t${source:Version}"
    version, source, source_version = output_of("dpkg-query", "-W", f"-f={fields}", package).split(
        "\t"
    )
    licences = licences_in(text)
    return f"| {library} | {package} {version} | {source}={source_version} | {licences} |\n"


def pybind11_row(folder):
    found = importlib.metadata.distribution("pybind11")
    texts = [file for file in found.files or [] if file.name == "LICENSE"]
    if not texts:
        sys.exit("carried_licences: the installed pybind11 has no LICENSE file")
    own = folder / "pybind11"
    own.mkdir(parents=True, exist_ok=True)
    (own / "copyright").write_bytes(Path(str(texts[0].locate())).read_bytes())
    return f"| pybind11 (compiled in) | pybind11 {found.version} from the Python index | | BSD |\n"


def name_both_licences(metadata):
    """Add the licence of the wheel as a whole to that of the code, in the file `metadata`."""
    text = metadata.read_text(encoding="utf-8")
    own = f"{LICENCE}{OWN}\n"
    if own not in text:
        sys.exit(f"carried_licences: {metadata.name} has no line {own.strip()!r}")
    both = own + f"{LICENCE}{AS_A_WHOLE}\n"
    metadata.write_text(text.replace(own, both, 1), encoding="utf-8")


def complete(wheel, folders):
    """Unpack `wheel`, add the table and the licences, and pack it again in its place."""
    with tempfile.TemporaryDirectory() as unpacked_in:
        output_of(sys.executable, "-m", "wheel", "unpack", str(wheel), "-d", unpacked_in)
        (unpacked,) = Path(unpacked_in).iterdir()
        (licences,) = unpacked.glob("*.dist-info/licenses")
        libraries = sorted((unpacked / f"{NAME}.libs").iterdir())
        folder = licences / "third_party"
        table = INTRODUCTION.format(name=NAME)
        for library in libraries:
            table += row(library.name, package_of(origin(library, folders)), folder)
        for package, library in HEADERS.items():
            table += row(f"{library} (compiled in)", package, folder)
        table += pybind11_row(folder)
        name_both_licences(licences.parent / "METADATA")
        (licences / "THIRD_PARTY.md").write_text(table, encoding="utf-8")
        output_of(sys.executable, "-m", "wheel", "pack", str(unpacked), "-d", str(wheel.parent))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("wheels", nargs="+", type=Path, metavar="WHEEL")
    parser.add_argument(
        "--libraries", required=True, metavar="FOLDERS", help="where auditwheel looked, with colons"
    )
    arguments = parser.parse_args()
    folders = [Path(folder) for folder in arguments.libraries.split(":")]
    for wheel in arguments.wheels:
        complete(wheel, folders)


if __name__ == "__main__":
    main()
