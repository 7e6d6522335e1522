"""Settings of the documentation site; `make docs` builds it."""

import re
import sys
from pathlib import Path

HERE = Path(__file__).parent
ROOT = HERE.parent
sys.path.insert(0, str(HERE))

project = "Talvorix"
author = "The Talvorix authors"
release = re.search(r'^version = "(.*)"', (ROOT / "pyproject.toml").read_text(), re.M)[1]
copyright = author

extensions = [
    "sphinx.ext.mathjax",
    "sphinx_gallery.gen_gallery",
    "myst_parser",
    "sphinx_design",
    "site_hooks",
]
# CONTRIBUTING.md stands below the title of another page, without its own.
suppress_warnings = ["myst.header"]
exclude_patterns = ["gallery/*.ipynb", "gallery/*.md5", "images"]
# Single backticks of docstrings name things of the module, and arguments, which stay as they are.
default_role = "py:obj"
# Two hyphens are an option of a script.
smartquotes = False
add_module_names = False
python_use_unqualified_type_names = True
toc_object_entries_show_parents = "hide"
maximum_signature_line_length = 88

html_theme = "pydata_sphinx_theme"
html_title = "Talvorix"
html_static_path = ["static"]
html_css_files = ["site.css"]
html_show_sourcelink = False
html_theme_options = {
    "show_prev_next": False,
    "secondary_sidebar_items": ["page-toc"],
    "navigation_with_keys": False,
    "show_nav_level": 1,
    "header_links_before_dropdown": 6,
}
html_sidebars = {"getting_started": [], "validation": [], "house": []}

sphinx_gallery_conf = {
    "examples_dirs": "../build/docs/examples",
    "gallery_dirs": "gallery",
    "filename_pattern": ".",
    "image_scrapers": ("site_hooks.collect_pictures",),
    "reset_argv": "site_hooks.prepare_run",
    "reset_modules": ("site_hooks.finish_run",),
    "within_subsection_order": "site_hooks.order_of",
    "abort_on_example_error": True,
    "download_all_examples": False,
    "show_signature": False,
    "write_computation_times": False,
    "min_reported_time": 1e9,
    "remove_config_comments": True,
}
