"""What the site makes when it is built: the reference, the drawings and the examples' pages."""

from __future__ import annotations

import ast
import re
import shutil
import sys
from pathlib import Path

import make_diagram
import make_house
import reference_pages
import talvorix

HERE = Path(__file__).resolve().parent
EXAMPLES = HERE.parent / "examples"
COPIES = HERE.parent / "build" / "docs" / "examples"
# Others come after these.
ORDER = [
    "estimate_drillholes",
    "variogram",
    "workflow",
    "find_anisotropy",
    "local_anisotropy",
    "simulate_deposit",
    "multivariate",
    "simulate_facies",
    "fit_custom_model",
    "huge_model",
]
# Where the site does with less than what an example does by itself.
SMALLER = {"huge_model": ["--blocks", "250000"]}


def as_markup(text: str) -> str:
    """Make markup of a script's docstring: its title, its paragraphs and its command lines."""
    title, _, rest = text.partition("\n")
    title = title.rstrip(".")
    blocks = []
    for block in re.split(r"\n\s*\n", rest.strip()):
        if block.startswith("    "):
            block = ".. code-block:: sh\n\n" + block
        else:
            block = reference_pages.escape(block)
        blocks.append(block)
    return "\n\n".join([f"{title}\n{'=' * len(title)}", *blocks])


def copy_examples() -> None:
    """Copy the examples to where the gallery runs them, with docstrings that are markup."""
    shutil.rmtree(COPIES, ignore_errors=True)
    COPIES.mkdir(parents=True)
    for path in EXAMPLES.iterdir():
        if path.suffix == ".py":
            source = path.read_text()
            node = ast.parse(source).body[0]
            lines = source.splitlines(keepends=True)
            docstring = f'r"""{as_markup(ast.literal_eval(node.value))}\n"""\n'
            (COPIES / path.name).write_text(docstring + "".join(lines[node.end_lineno :]))
        elif path.is_file():
            shutil.copy(path, COPIES)
    (COPIES / "GALLERY_HEADER.rst").write_text((HERE / "gallery_header.txt").read_text())


def forget_old_runs(gallery: Path) -> None:
    """Let all examples run anew when the module was built since they last ran."""
    stamp = gallery / "module.txt"
    built = f"{Path(talvorix.__file__).stat().st_mtime_ns}\n"
    if not stamp.exists() or stamp.read_text() != built:
        shutil.rmtree(gallery, ignore_errors=True)
        gallery.mkdir()
        stamp.write_text(built)


def order_of(name: str) -> tuple[int, str]:
    """Return the key by which the gallery sorts its scripts."""
    stem = Path(name).stem
    return ORDER.index(stem) if stem in ORDER else len(ORDER), stem


def results_of(script: str) -> Path:
    """Return the folder that an example writes to."""
    return Path(script).parent / "out" / Path(script).stem


def prepare_run(gallery_conf, script_vars):
    """Give an example what it has on the command line, and return its arguments."""
    script = script_vars["src_file"]
    script_vars["example_globals"]["__file__"] = script
    shutil.rmtree(results_of(script), ignore_errors=True)

    def leave(status=None):
        if status:
            raise RuntimeError(f"{Path(script).name} ended with {status}, expected 0")

    # Ending the script must not end the build.
    sys.exit = leave
    out = str(results_of(script).relative_to(COPIES))
    return ["--out", out, *SMALLER.get(Path(script).stem, [])]


LEAVE = sys.exit


def finish_run(gallery_conf, script):
    """Undo what was prepared."""
    sys.exit = LEAVE


def collect_pictures(block, block_vars, gallery_conf):
    """Take the pictures that an example has written."""
    from sphinx_gallery.scrapers import figure_rst

    taken = []
    for picture in sorted(results_of(block_vars["src_file"]).glob("*.png")):
        target = next(block_vars["image_path_iterator"])
        shutil.copy(picture, target)
        taken.append(target)
    return figure_rst(taken, gallery_conf["src_dir"])


def prepare(app, config):
    """Make what is not kept in the repository."""
    reference_pages.write_pages(HERE / "reference")
    drawn = HERE / "drawn"
    drawn.mkdir(exist_ok=True)
    make_diagram.main(drawn / "angles.png")
    make_house.main(drawn / "house.png")
    copy_examples()
    forget_old_runs(HERE / "gallery")


def setup(app):
    """Register with Sphinx; before the gallery, which reads the copies."""
    app.connect("config-inited", prepare, priority=1)
    return {"parallel_read_safe": True}
