"""What is passed on: the source distribution, its metadata, and the tools that make wheels."""

import email
import hashlib
import importlib.metadata
import importlib.util
import re
import shutil
import subprocess
import sys
import tarfile
from pathlib import Path

import pytest
import talvorix

ROOT = Path(__file__).resolve().parents[2]


@pytest.fixture(scope="module")
def source_distribution(tmp_path_factory):
    pytest.importorskip("scikit_build_core")
    folder = tmp_path_factory.mktemp("sdist")
    script = f"from scikit_build_core.build import build_sdist; build_sdist({str(folder)!r})"
    subprocess.run([sys.executable, "-c", script], cwd=ROOT, check=True, capture_output=True)
    with tarfile.open(next(folder.iterdir())) as archive:
        yield archive


def test_source_distribution_is_what_git_has(source_distribution):
    git = ["git", "ls-files", "--cached", "--others", "--exclude-standard"]
    listing = shutil.which("git") and subprocess.run(
        git, cwd=ROOT, capture_output=True, text=True, check=False
    )
    if not listing or listing.returncode != 0:
        pytest.skip("this is not a clone")
    kept = {name for name in listing.stdout.splitlines() if (ROOT / name).exists()}
    packed = {Path(name).relative_to(name.split("/")[0]) for name in source_distribution.getnames()}
    packed = {str(name) for name in packed}
    assert {name for name in kept - packed if not name.startswith(".ci/")} == set()
    assert packed - kept == {"PKG-INFO"}


def test_metadata_names_the_interpreters_that_wheels_are_made_for(source_distribution):
    (name,) = [name for name in source_distribution.getnames() if name.endswith("PKG-INFO")]
    metadata = email.message_from_bytes(source_distribution.extractfile(name).read())
    listed = [item.rpartition(" ")[2] for item in metadata.get_all("Classifier")]
    versions = [item for item in listed if re.fullmatch(r"3\.\d+", item)]
    oldest, beyond = sorted(map(int, re.findall(r"3\.(\d+)", metadata["Requires-Python"])))
    assert versions == [f"3.{minor}" for minor in range(oldest, beyond)]
    # The sources name it in two places, for the module and for what is passed on.
    installed = importlib.metadata.version("talvorix")
    assert talvorix.__version__ == metadata["Version"] == installed
    assert metadata["Description-Content-Type"] == "text/markdown" and metadata.get_payload()
    for minor, taken in ((oldest - 1, False), (oldest, True), (beyond - 1, True), (beyond, False)):
        found = interpreters(f"3.{minor}", PATH="/usr/bin:/bin", PYENV_ROOT="/nowhere")
        assert ("is not a version to build for" not in found.stderr) == taken


def interpreters(*versions, **environment):
    return subprocess.run(
        [ROOT / "scripts" / "find_python.sh", "--each", *versions],
        env=environment,
        capture_output=True,
        text=True,
        check=False,
    )


def test_interpreters_for_wheels(tmp_path):
    here, other = f"3.{sys.version_info[1]}", "3.11" if sys.version_info[1] != 11 else "3.12"
    for tool in ("bash", "env", "find", "grep", "sed", "seq", "sort"):
        (tmp_path / tool).symlink_to(shutil.which(tool))
    # The second is not of the version that its name says.
    for version in (here, other):
        (tmp_path / f"python{version}").symlink_to(Path(sys.base_prefix, "bin", f"python{here}"))
    found = interpreters(here, PATH=str(tmp_path), PYENV_ROOT="/nowhere")
    if "it has no" in found.stderr:
        pytest.skip("this interpreter has no headers or no venv")
    assert found.returncode == 0 and re.fullmatch(rf"{here} /\S+\n", found.stdout)
    found = interpreters(PATH=str(tmp_path), PYENV_ROOT="/nowhere")
    assert found.returncode == 1 and f"passing over {tmp_path}/python{other}" in found.stderr
    absent = [f"3.{minor}" for minor in range(10, 14) if minor != sys.version_info[1]]
    assert f"missing: CPython {' '.join(absent)} with" in found.stderr
    assert all(f"pyenv install {version}" in found.stderr for version in absent)


def test_carried_library_is_traced_to_its_package(tmp_path):
    if not shutil.which("dpkg"):
        pytest.skip("this is not Debian")
    place = importlib.util.spec_from_file_location(
        "carried_licences", ROOT / "tools" / "carried_licences.py"
    )
    tool = importlib.util.module_from_spec(place)
    place.loader.exec_module(tool)
    folder = Path(tool.output_of("gcc", "-print-file-name=libfftw3.so").strip()).parent
    library = (folder / "libfftw3.so.3").resolve()
    digest = hashlib.sha256(library.read_bytes()).hexdigest()[:8]
    other = digest[::-1]
    assert other != digest
    stem, _, number = library.name.partition(".so")
    assert tool.origin(Path(f"{stem}-{digest}.so{number}"), [tmp_path, folder]) == library
    for name in (f"{stem}-{other}.so{number}", library.name):
        with pytest.raises(SystemExit, match="carried_licences"):
            tool.origin(Path(name), [folder])
    row = tool.row("name", tool.package_of(library), tmp_path)
    assert "| fftw3=3." in row and row.endswith("| GPL-2+ |\n")
    assert "GPL" in (tmp_path / "libfftw3-double3" / "copyright").read_text(encoding="utf-8")
    assert (tmp_path / "common-licenses" / "GPL-2").stat().st_size > 10_000
    with pytest.raises(SystemExit, match="no Debian package owns"):
        tool.package_of(tmp_path / "libfftw3.so.3")
