"""Write the pages of the reference from the modules and their docstrings.

Names are found by walking through the module, so that a new one gets its page by itself. It stands
with the family whose bindings register it.
"""

from __future__ import annotations

import inspect
import re
import types
from collections.abc import Callable, Iterator
from dataclasses import dataclass, field
from pathlib import Path

import talvorix
import talvorix_dask

SOURCES = Path(__file__).resolve().parents[1] / "src"
# In the order of the guide; a family that is not listed here comes after these.
FAMILIES = {
    "spatial": "Ellipsoids, searches and grids",
    "covariance": "Covariance models",
    "distributions": "Distributions and transforms",
    "projection": "Smooth maps",
    "estimation": "Estimation",
    "variography": "Variography",
    "selection": "Choice of models",
    "simulation": "Simulation",
    "module": "Threads",
}
# What Python or the binding library adds to every class.
MACHINERY = {"__doc__", "__module__", "__array_ufunc__", "_pybind11_conduit_v1_"}
# What is called by Python alone, in all classes alike.
MACHINERY |= {"__eq__", "__hash__", "__repr__", "__getstate__", "__setstate__"}
NUMBERED = re.compile(r"^\d+\. (?=\w+\()", re.MULTILINE)
# A reference begins with the surname and the initials of its first author.
AUTHOR = re.compile(r"(?<=\.)\n(?=[A-Z][\w'-]+(?: [A-Z][\w'-]+)?, [A-Z]\.)")


@dataclass
class Form:
    """Signatures that share a text."""

    signatures: list[str]
    text: str


@dataclass
class Entry:
    """A public name: a function, a class or a member of one."""

    name: str
    directive: str
    forms: list[Form]
    flags: list[str] = field(default_factory=list)
    members: list[Entry] = field(default_factory=list)

    def summary(self) -> str:
        """Return the first sentence of the text."""
        paragraph = self.forms[0].text.strip().split("\n\n")[0].replace("\n", " ")
        return re.split(r"(?<=[.:])\s", paragraph)[0].rstrip(":")


def split_arguments(text: str) -> list[str]:
    """Split at the commas that stand outside of brackets and quotes."""
    pieces, depth, quoted = [""], 0, False
    for letter in text:
        quoted ^= letter in "'\""
        depth += (letter in "([{<") - (letter in ")]}>") if not quoted else 0
        if letter == "," and not depth and not quoted:
            pieces.append("")
        else:
            pieces[-1] += letter
    return [piece.strip() for piece in pieces if piece.strip()]


def shorten_argument(argument: str) -> str:
    """Leave the type out, which the text tells in words, and shorten the default."""
    named = re.fullmatch(r"(\**\w+)(?:: (.*?))?(?: = (.*))?", argument, re.DOTALL)
    if not named:
        return argument
    name, _, default = named.groups()
    if default is None:
        return name
    if default.startswith("array("):
        default = "(" + ", ".join(f"{float(x):g}" for x in re.findall(r"[-\d.]+", default)) + ")"
    # A record lists all its fields.
    default = re.sub(r"^(?:\w+\.)*(\w+)\(.+\)$", r"\1(...)", default)
    return f"{name}={default}"


def shorten_signature(line: str) -> str:
    """Make a signature as the binding library writes it readable."""
    found = re.fullmatch(r"(\w+)\((.*)\)(?: -> (.*))?", line, re.DOTALL)
    if not found:
        raise ValueError(f"expected a signature such as name(a: int) -> int, got {line!r}")
    name, arguments, result = found.groups()
    kept = [x for x in split_arguments(arguments) if not x.startswith("self:")]
    short = f"{name}({', '.join(map(shorten_argument, kept))})"
    if result in (None, "None", "object"):
        return short
    result = re.sub(r"numpy\.ndarray\[[^\[\]]*(?:\[[^\]]*\])?\]", "numpy.ndarray", result)
    return f"{short} -> {result.replace('List[', 'list[')}"


def read_forms(docstring: str) -> list[Form]:
    """Split a docstring into signatures and what stands below each of them.

    Of several forms, those without a text of their own belong to the one before.
    """
    pieces = NUMBERED.split(docstring)
    if "Overloaded function." in pieces[0]:
        pieces = pieces[1:]
    forms: list[Form] = []
    for piece in pieces:
        line, _, text = piece.partition("\n")
        signature = shorten_signature(line.strip())
        if forms and not text.strip():
            if signature not in forms[-1].signatures:
                forms[-1].signatures.append(signature)
        else:
            forms.append(Form([signature], text.strip()))
    return forms


def read_member(name: str, member: object) -> Entry | None:
    """Describe what stands in a class under a name; None for what is not to be shown."""
    if name in MACHINERY or (name.startswith("_") and not name.endswith("__")):
        return None
    if isinstance(member, property):
        # A property of a class is a subclass of property, which hides the docstring behind its own.
        text = property.__dict__["__doc__"].__get__(member) or ""
        own = "attribute" if type(member) is not property else "property"
        return Entry(name, own, [Form([name], text.strip())])
    function = member.__func__ if isinstance(member, staticmethod) else member
    docstring = getattr(function, "__doc__", None) or ""
    # Every class has this constructor, which raises where instances come from elsewhere.
    if not callable(function) or not re.match(rf"(?:{name})\(", docstring):
        return None
    flags = ["staticmethod"] if isinstance(member, staticmethod) else []
    return Entry(name, "method", read_forms(docstring), flags)


def read_entry(name: str, thing: object) -> Entry:
    """Describe a function, or a class with its members."""
    docstring = (thing.__doc__ or "").strip()
    if not isinstance(thing, type):
        return Entry(name, "function", read_forms(docstring))
    members = [read_member(key, member) for key, member in vars(thing).items()]
    shown = sorted(filter(None, members), key=lambda m: (m.name != "__init__", m.name))
    return Entry(name, "class", [Form([name], docstring)], [], shown)


def read_python(name: str, thing: object) -> Entry:
    """Describe a function or a class that is written in Python."""
    text = inspect.getdoc(thing) or ""
    if isinstance(thing, property):
        return Entry(name, "property", [Form([name], text)])
    if not isinstance(thing, type):
        parameters = inspect.signature(thing).parameters.values()
        shown = [p.replace(annotation=p.empty) for p in parameters if p.name not in ("self", "cls")]
        signature = str(inspect.Signature(shown))
        return Entry(name, "function", [Form([name + signature], text)])
    entry = Entry(name, "class", [Form([name], text)])
    for key, member in sorted(vars(thing).items(), key=lambda item: (item[0] != "__init__", item)):
        own = getattr(member, "__func__", member)
        # A record's methods are its machinery, without texts of their own.
        written = inspect.isfunction(own) and own.__doc__ and own.__qualname__.startswith(name)
        if isinstance(member, property) or (written and (key[0] != "_" or key[:2] == "__")):
            part = read_python(key, own)
            part.directive = "method" if part.directive == "function" else part.directive
            part.flags = ["classmethod"] if isinstance(member, classmethod) else []
            entry.members.append(part)
    return entry


def modules(root: types.ModuleType = talvorix) -> Iterator[types.ModuleType]:
    """Go through the module and its submodules."""
    yield root
    for name, thing in sorted(vars(root).items()):
        if isinstance(thing, types.ModuleType) and not name.startswith("_"):
            yield from modules(thing)


def family_of(name: str, sources: dict[str, str]) -> str:
    """Return the family whose bindings register a name of the module itself."""
    # As a function or a class of the module; else wherever the name stands.
    for pattern in (rf'\bm\.def\(\s*"{name}"', rf'>?\(\s*m,\s*"{name}"', f'"{name}"'):
        for family, text in sources.items():
            if re.search(pattern, text):
                return family
    return "module"


def groups() -> dict[str, tuple[str, str, list[Entry]]]:
    """Return title, module and entries of every page that lists names, by the name of the page."""
    order = [*FAMILIES]
    paths = {path.parent.name: path for path in sorted(SOURCES.glob("*/bindings.cpp"))}
    ranked = sorted(
        paths, key=lambda family: order.index(family) if family in order else len(order)
    )
    sources = {family: paths[family].read_text() for family in ranked}
    found: dict[str, tuple[str, str, list[Entry]]] = {
        family: (title, "talvorix", []) for family, title in FAMILIES.items()
    }
    for module in modules():
        page = title = module.__name__
        if module is not talvorix:
            found[page] = title, module.__name__, []
        for name, thing in sorted(vars(module).items()):
            if name.startswith("_") or isinstance(thing, types.ModuleType):
                continue
            if module is talvorix:
                page = family_of(name, sources)
                title = FAMILIES.get(page, page.capitalize())
            found.setdefault(page, (title, module.__name__, []))[2].append(read_entry(name, thing))
    name = talvorix_dask.__name__
    public = [read_python(key, getattr(talvorix_dask, key)) for key in talvorix_dask.__all__]
    found[name] = name, name, public
    return found


def escape(text: str) -> str:
    """Keep characters of plain text from being read as markup, except between backticks."""
    pieces = text.split("`")
    pieces[::2] = [
        re.sub(r"(?<=\w)_(?!\w)", r"\\_", re.sub(r"([*|\\])", r"\\\1", p)) for p in pieces[::2]
    ]
    return "`".join(pieces)


def lay_out(entry: Entry, render: Callable[[str], str], indent: str = "") -> Iterator[str]:
    """Write an entry as directives."""
    for k, form in enumerate(entry.forms):
        for n, signature in enumerate(form.signatures):
            start = f".. py:{entry.directive}:: " if n == 0 else " " * (11 + len(entry.directive))
            yield indent + start + signature
        yield from (f"{indent}   :{flag}:" for flag in entry.flags)
        # One entry of the index leads to all forms.
        if k:
            yield f"{indent}   :no-index:"
        yield ""
        text = AUTHOR.sub("\n\n", escape(form.text))
        yield from (f"{indent}   {line}".rstrip() for line in render(text).splitlines())
        yield ""
    for member in entry.members:
        yield from lay_out(member, render, indent + "   ")


def pages(render: Callable[[str], str] = str) -> dict[str, str]:
    """Return all pages by file name; `render` makes markup of a docstring's text."""
    written, listed = {}, groups()
    for page, (title, module, entries) in listed.items():
        directive = "currentmodule" if module == "talvorix" else "module"
        lines = [title, "=" * len(title), "", f".. py:{directive}:: {module}", ""]
        if module != "talvorix":
            owner = next(m for m in (*modules(), talvorix_dask) if m.__name__ == module)
            lines += [escape((owner.__doc__ or "").strip()), ""]
        lines += [".. list-table::", "   :widths: 35 65", ""] if entries else []
        for entry in entries:
            lines += [
                f"   * - :py:obj:`~{module}.{entry.name}`",
                f"     - {escape(entry.summary())}",
            ]
        lines += ["", ".. toctree::", "   :hidden:", ""] if entries else []
        for entry in entries:
            file = f"{module}.{entry.name}"
            lines.append(f"   {entry.name} <{file}>")
            head = [file, "=" * len(file), "", f".. py:currentmodule:: {module}", ""]
            written[f"{file}.rst"] = "\n".join([*head, *lay_out(entry, render)]) + "\n"
        written[f"{page}.rst"] = "\n".join(lines) + "\n"
    lines = ["Reference", "=========", "", ".. py:module:: talvorix", ""]
    lines += ["All names of both modules, from their docstrings; ``help(talvorix.TBSIM)`` shows"]
    lines += [
        "the same text in Python. Wherever locations are asked for, an array of shape (n, 3), a"
    ]
    lines += ["list of points or a grid can stand.", "", ".. toctree::", "   :maxdepth: 1", ""]
    written["index.rst"] = "\n".join([*lines, *(f"   {page}" for page in listed)]) + "\n"
    return written


def write_pages(folder: Path) -> None:
    """Write the pages into a folder that holds nothing else; what is up to date stays untouched."""
    from numpydoc.docscrape_sphinx import SphinxDocString

    # Its templates leave many empty lines behind.
    written = pages(
        lambda text: re.sub(r"\n\s*\n+", "\n\n", str(SphinxDocString(text))).strip("\n")
    )
    folder.mkdir(parents=True, exist_ok=True)
    for path in folder.glob("*.rst"):
        if path.name not in written:
            path.unlink()
    for name, text in written.items():
        path = folder / name
        if not path.exists() or path.read_text() != text:
            path.write_text(text)
