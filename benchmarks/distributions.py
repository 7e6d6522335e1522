"""Measure tables of distributions beside numpy and print a table of markdown.

    python benchmarks/distributions.py --repeats 7

The floor of each task is what a script would call instead: numpy's draws and sort for a table, its
binary search and the arithmetic of the interpolation for the lookups. Theirs end in arrays, ours
in lists. Machines differ: read the ratios.
"""

import argparse
import functools
import platform
import time

import numpy as np
import talvorix


def seconds(call, repeats):
    """Return the best time of a call."""
    times = []
    for _ in range(repeats):
        start = time.perf_counter()
        call()
        times.append(time.perf_counter() - start)
    return min(times)


def probabilities(table, values):
    """Look values up in a sorted sample, as CDF.probs does."""
    n, dp = len(table), 1.0 / len(table)
    k = np.searchsorted(table, values)
    inside = np.clip(k, 1, n - 1)
    left = 1.0 / ((values - table[inside - 1]) + 1e-7)
    right = 1.0 / ((table[inside] - values) + 1e-7)
    base = k * dp
    between = (base - dp) * left / (left + right) + base * right / (left + right)
    return np.where(k == n, 1.0, np.where((k > 0) & (k < n - 1), between, base))


def quantiles(table, probs):
    """Look probabilities up in a sorted sample, as CDF.values does."""
    n = len(table)
    x = np.clip(n * probs, 0, n - 1)
    i = np.minimum(x.astype(np.int64), n - 2)
    f = x - i
    return f * table[i + 1] + (1 - f) * table[i]


def tasks(n_table, n_queries):
    """Return (label, call of talvorix given a thread count, call of numpy) for every task."""
    rng = np.random.default_rng(1)
    gaussian = talvorix.gaussian_distribution()
    data = talvorix.data_distribution(rng.lognormal(size=20_000))
    cdf = talvorix.CDF(gaussian, n_table)
    scores = talvorix.NScore(data, gaussian, n_table)
    table = np.array(gaussian.histogram(n_table, 1))
    source = np.array(data.histogram(n_table, 1))
    values, probs, z = (
        rng.normal(size=n_queries),
        rng.random(n_queries),
        rng.lognormal(size=n_queries),
    )
    return [
        (
            f"CDF of {n_table:,} gaussian draws",
            lambda _: talvorix.CDF(gaussian, n_table),
            lambda: np.sort(rng.standard_normal(n_table)),
        ),
        (
            f"CDF.probs of {n_queries:,}",
            lambda n_threads: cdf.probs(values, n_threads),
            lambda: probabilities(table, values),
        ),
        (
            f"CDF.values of {n_queries:,}",
            lambda n_threads: cdf.values(probs, n_threads),
            lambda: quantiles(table, probs),
        ),
        (
            f"NScore.forward of {n_queries:,}",
            lambda n_threads: scores.forward(z, n_threads),
            lambda: quantiles(table, probabilities(source, z)),
        ),
    ]


def main():
    """Measure every task with one thread and with all, and print the table."""
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--table", type=int, default=800_000, metavar="N", help="draws of a table")
    parser.add_argument("--queries", type=int, default=1_000_000, metavar="N")
    parser.add_argument("--repeats", type=int, default=5, metavar="R", help="the best one counts")
    arguments = parser.parse_args()
    print(f"Python {platform.python_version()}, numpy {np.__version__}\n")
    print("| task | threads | numpy, ms | talvorix, ms | talvorix time / numpy time |")
    print("|---|---:|---:|---:|---:|")
    for label, ours, floor in tasks(arguments.table, arguments.queries):
        floor_seconds = seconds(floor, arguments.repeats)
        for n_threads in sorted({1, talvorix.check_n_threads(0)}):
            spent = seconds(functools.partial(ours, n_threads), arguments.repeats)
            print(
                f"| {label} | {n_threads} | {1e3 * floor_seconds:.1f} | {1e3 * spent:.1f} "
                f"| **{spent / floor_seconds:.2f}** |"
            )


if __name__ == "__main__":
    main()
