"""The documentation site: its reference against the stubs, its snippets against what they print."""

import ast
import contextlib
import importlib
import io
import re
import textwrap
import time
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
DOCS, STUBS = ROOT / "docs", ROOT / "src" / "module"
PAGES = [DOCS / "getting_started.rst", *sorted((DOCS / "guide").glob("*.rst"))]
BLOCK = re.compile(r"^\.\. code-block:: (python|text)\n\n((?: {3}.*\n|\n)+)", re.MULTILINE)


def documented():
    """The names that the directives of the reference's pages declare."""
    names = set()
    for text in importlib.import_module("reference_pages").pages().values():
        owner = cls = ""
        for kind, signature in re.findall(r"^ *\.\. py:(\w+):: (.*)", text, re.MULTILINE):
            name = signature.split("(")[0]
            if kind in ("module", "currentmodule"):
                owner = name
            if kind == "module" or kind in ("function", "class"):
                cls = name
            inside = kind in ("method", "property", "attribute")
            if kind != "currentmodule":
                path = (
                    [owner, cls, name] if inside else [name] if kind == "module" else [owner, name]
                )
                names.add(".".join(path))
    return names


def stubbed(path, module):
    """The names that a stub declares, without those that only its types or Python itself use."""
    machinery = importlib.import_module("reference_pages").MACHINERY
    yield module
    for node in ast.parse(path.read_text()).body:
        if not isinstance(node, ast.ClassDef | ast.FunctionDef) or node.name.startswith("_"):
            continue
        yield f"{module}.{node.name}"
        for part in node.body if isinstance(node, ast.ClassDef) else ():
            shown = getattr(part, "name", None) or ast.unparse(getattr(part, "target", node))
            none = "no_constructor" in ast.unparse(part)
            is_name = isinstance(part, ast.FunctionDef | ast.AnnAssign) and shown not in machinery
            if is_name and not none:
                yield f"{module}.{node.name}.{shown}"


def test_the_reference_has_every_name_and_no_other(monkeypatch):
    monkeypatch.syspath_prepend(DOCS)
    expected = set(stubbed(STUBS / "talvorix.pyi", "talvorix"))
    for path in (STUBS / "talvorix").rglob("*.pyi"):
        parts = path.relative_to(STUBS).with_suffix("").parts
        expected |= set(stubbed(path, ".".join(p for p in parts if p != "__init__")))
    # Of records written in Python the fields stand in the text of the class.
    companion = importlib.import_module("talvorix_dask")
    expected.add("talvorix_dask")
    for name in companion.__all__:
        thing = getattr(companion, name)
        members = vars(thing) if name == "Grid" else {}
        shown = {key for key in members if re.match("[a-z]|__(init|len)__", key)}
        expected |= {f"talvorix_dask.{name}", *(f"talvorix_dask.{name}.{key}" for key in shown)}
    assert len(expected) > 450 and documented() == expected


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.stem)
def test_snippets_run_and_print_what_the_page_says(page, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    blocks, names, printed = BLOCK.findall(page.read_text()), {}, ""
    assert page.stem == "index" or any(kind == "text" for kind, _ in blocks)
    begun = time.process_time()
    for kind, block in blocks:
        code = textwrap.dedent(block).strip()
        if kind == "text":
            assert printed.strip() == code
            printed = ""
            continue
        assert not printed, f"{page.name}: nothing shows what the page prints: {printed}"
        out = io.StringIO()
        with contextlib.redirect_stdout(out):
            exec(compile(code, page.name, "exec"), names)
        printed = out.getvalue()
    assert not printed and time.process_time() - begun < 3
