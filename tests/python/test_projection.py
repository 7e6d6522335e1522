"""Maps of numbers, the fits of them, and their ways back."""

import numpy as np
import pytest
import scipy.optimize
import talvorix
from literal import KERNELS, Engine

KERNELS = {
    **KERNELS,
    "idw": lambda h: np.where(h < 1e-6, 1e6, 1 / (h * h)),
    "nugget": lambda h: np.where(h < 1e-30, 1.0, 0.0),
}
SHAPE = dict(n_centers=3, min_weight=-3.0, max_weight=12.0, min_beta=0.05, max_beta=1.5)
SHAPE.update(min_center=-4.0, max_center=9.0)
FIT = dict(n_partitions=6, min_partition_size=5, max_partition_size=11, cauchy_loss=0.0)
FIT.update(n_iterations=300, n_threads=1, seed=11, debug=False)


def pairs(n, seed=3):
    rng = np.random.default_rng(seed)
    x = rng.gamma(2.0, 1.0, n)
    return x, np.log1p(x) + 0.1 * rng.normal(size=n)


def fit(x, y, kernel="exponential", **changes):
    return talvorix.optimize_projection(x, y, kernel, **{**SHAPE, **FIT, **changes})


@np.errstate(all="ignore")
def mapped(parameters, kernel, u):
    center, beta, weight = np.reshape(parameters, (-1, 3)).T
    k = KERNELS[kernel](beta * np.abs(np.asarray(u, float)[..., None] - center))
    return (weight * k).sum(-1) / k.sum(-1)


def start(x, y, engine, n_centers, min_beta, max_beta, **_):
    drawn = [engine.raw() % len(x) for _ in range(n_centers)]
    return np.ravel([[x[i], (min_beta + max_beta) * 0.5, y[i]] for i in drawn])


def limited(e):
    return np.where(np.abs(e) <= 1, e, np.sign(e) * (2 * np.sqrt(np.abs(e)) - 1))


def literal_problem(x, y, kernel, settings):
    """The start of a fit, and its residuals as a function of the parameters."""
    engine, partitions, b = Engine(settings["seed"]), [], settings["cauchy_loss"]
    first = start(x, y, engine, **settings)
    least, most = settings["min_partition_size"], settings["max_partition_size"]
    for _ in range(settings["n_partitions"]):
        size = min(engine.raw() % (most - least + 1) + 1 + least, len(x) - 1)
        partitions.append([engine.raw() % len(x) for _ in range(size)])

    def residuals(parameters):
        everything = []
        for drawn in partitions:
            r = limited(2 * (mapped(parameters, kernel, x[drawn]) - y[drawn]) / np.std(x))
            block = np.array([*(r / len(drawn)), limited(2 * np.sqrt(np.mean(r * r)))])
            everything += [np.sqrt(b * b * np.log1p(block @ block / b**2))] if b > 0 else [*block]
        return np.array(everything)

    return first, residuals


@pytest.mark.quick
@pytest.mark.parametrize("kernel", KERNELS)
def test_values(kernel):
    rng = np.random.default_rng(5)
    parameters = rng.normal(size=(7, 3)) * [3, 0, 2] + [0, 0.4, 0]
    parameters[:, 1] += rng.random(7)
    parameters[3, :2] = 2.0, 1.0  # where a ramp ends at 3 and at 1
    u = [*parameters[:, 0], *rng.normal(size=500) * 4, 1.0, 3.0, -60.0, 1e3, 1e200, np.inf, -np.inf]
    u += [np.nan, np.nextafter(2.0, 3), 2.0 + 1e-7]
    for changed in (parameters, parameters * [1, -1, 1], parameters * [1, 1e-40, 1], []):
        flat = np.ravel(changed)
        projection = talvorix.Projection(flat, kernel)
        assert projection.serialize() == [*flat]
        found = projection.forward(u, 1)
        np.testing.assert_allclose(found, mapped(flat, kernel, u), rtol=1e-9, atol=1e-9)
        for again in (
            [projection.forward(value) for value in u],
            projection.forward(np.array(u), n_threads=2),
            talvorix.Projection(parameters=[*flat], kernel=kernel).forward(u=tuple(u)),
        ):
            np.testing.assert_array_equal(again, found)
        ints = [projection.forward([7, 0])[0], projection.forward(np.array([7]))[0]]
        np.testing.assert_array_equal(ints, [projection.forward(7)] * 2)


@pytest.mark.quick
def test_the_search_starts_at_random_pairs_and_stays_where_it_cannot_move():
    x, y = pairs(40)
    few = {"n_centers": 9, "seed": -5}
    all_pairs = {"min_partition_size": 39, "max_partition_size": 39}
    for source, target, changes in [
        *((x, y, {name: 0}) for name in ("n_partitions", "n_iterations", "n_centers")),
        (x, y, {"max_weight": np.median(y)}),
        (x, y, {"min_center": np.median(x)}),
        (x, y, {"min_beta": 0.775, "max_beta": 0.775}),
        (x, y, {"min_weight": np.nan}),
        (np.where(x == x[0], np.nan, x), y, {}),
        (x, np.where(x == x[0], np.nan, y), all_pairs),
        (np.full(40, 2.0), y, {}),
        (x[:1], y[:1], {}),
    ]:
        found = fit(source, target, **{**few, **changes}).serialize()
        expected = start(source, target, Engine(-5), **{**SHAPE, **few, **changes})
        np.testing.assert_array_equal(found, expected, err_msg=str(changes))
    assert fit(x, y, **few).serialize() != fit(x, y, **few, n_iterations=0).serialize()
    assert fit(x, y, "nugget").serialize() == fit(x, y, "nugget", n_iterations=0).serialize()


@pytest.mark.parametrize(
    "kernel, n, changes",
    [
        ("exponential", 60, {}),
        ("gaussian", 60, dict(cauchy_loss=0.05, seed=5)),
        ("exponential", 12, dict(min_partition_size=20, max_partition_size=30, seed=1)),
        ("gaussian", 60, dict(min_partition_size=7, max_partition_size=7, seed=2**33 + 4)),
    ],
)
def test_fits_reach_the_bottom(kernel, n, changes):
    x, y = pairs(n)
    y[::10] += 4  # not all errors within the limit
    settings = {**SHAPE, **FIT, "n_partitions": 3 if n < 20 else 6, **changes}
    first, residuals = literal_problem(x, y, kernel, settings)
    ends = [settings[f"{m}_{of}"] for m in ("min", "max") for of in ("center", "beta", "weight")]
    lower, upper = np.tile(ends[:3], 3), np.tile(ends[3:], 3)
    found = np.array(fit(x, y, kernel, **settings).serialize())
    assert (found >= lower).all() and (found <= upper).all()

    def search(begin):
        begin = np.clip(begin, lower + 1e-9, upper - 1e-9)
        bounds = lower, upper
        return scipy.optimize.least_squares(residuals, begin, bounds=bounds, max_nfev=60).cost

    cost = 0.5 * np.sum(residuals(found) ** 2)
    assert cost < 0.98 * 0.5 * np.sum(residuals(first) ** 2)
    assert cost < 1.02 * search(first) and cost < 1.005 * search(found)


def test_fits_resist_outliers_and_do_not_depend_on_threads():
    x, y = pairs(900, 8)
    clean = np.log1p(x)
    y[::15] += 40
    sizes = dict(n_centers=5, n_partitions=15, n_iterations=40, max_weight=60.0)
    sizes.update(min_partition_size=60, max_partition_size=120)
    found = fit(x, y, **sizes)
    bulk = np.abs(np.array(found.forward(x, 1)) - clean)[x < 5]
    # A fifteenth of the pairs would move a mean by 2.7.
    assert np.median(bulk) < 0.15 and np.quantile(bulk, 0.95) < 0.4
    assert fit([*x], [*y], **sizes, n_threads=2).serialize() == found.serialize()
    assert fit(x, y, **sizes, seed=12).serialize() != found.serialize()


def test_isomorphisms_are_two_fits():
    x, y = pairs(50)
    forth, back = ("exponential", 4), ("gaussian", 5)
    fields = dict(weight_tol=3.0, center_tol=2.0, min_beta=0.1, max_beta=3.5, n_partitions=7)
    fields.update(min_partition_size=0.7, max_partition_size=1.9, cauchy_loss=0.4, n_iterations=6)
    record = talvorix.IsomorphismParameters(*forth, *back, **fields, n_threads=1, seed=21)
    beta_x, beta_y = ((0.1 / np.ptp(of), 3.5 / np.ptp(of)) for of in (x, y))
    values = y.min() - np.ptp(y) * 3, y.max() + np.ptp(y) * 3
    places = x.min() - np.ptp(x) * 2, x.max() + np.ptp(x) * 2
    shared = 7, int(50 * 0.7 / 7), int(50 * 1.9 / 7), 0.4, 6, 1, 21, False
    first = talvorix.optimize_projection(x, y, *forth, *values, *beta_x, *places, *shared)
    second = talvorix.optimize_projection(
        first.forward(x, 1), x, *back, *places, *beta_y, *values, *shared
    )
    bounds = *forth, *beta_x, *back, *beta_y, *values, *places
    iso = talvorix.optimize_isomorphism(x, y, *bounds, *shared)
    derived = talvorix.optimize_isomorphism(source_data=x, target_data=y, iso_params=record)
    pair = talvorix.Isomorphism(forward_proj=first, backward_proj=second)
    for again in (iso, derived, pair):
        assert again.serialize() == (first.serialize(), second.serialize())
        assert again.forward([*x], 1) == first.forward(x, 1) == [again.forward(v) for v in x]
        assert again.backward(y, n_threads=2) == second.forward(y) == again.backward(u=[*y])
        assert again.backward(0.5) == second.forward(0.5) == again.backward_proj.forward(0.5)
        assert again.forward(0.5) == again.forward_proj.forward(0.5) != again.backward(0.5)
    same = talvorix.Isomorphism(iso.serialize(), "gaussian")
    assert same.backward(y) == iso.backward(y) and same.forward(x) != iso.forward(x)
    assert talvorix.Isomorphism(parameters=iso.serialize()).forward(x) == iso.forward(x)


def test_records_and_round_trips():
    names = "kernel_forward n_centers_forward kernel_backward n_centers_backward weight_tol"
    names += " center_tol min_beta max_beta min_partition_size max_partition_size n_partitions"
    names += " cauchy_loss n_iterations n_threads seed debug"
    defaults = ["exponential", 27, "exponential", 33, 10.0, 10.0, 1e-6, 4.0, 0.5, 2.0, 20, 0.0]
    defaults += [50, 0, 123154, False]
    other = ["idw", 3, "spherical", 4, 5.0, 6.0, 0.5, 7.0, 0.1, 8.0, 9, 0.2, 10, 2, -3, True]
    record, made = talvorix.IsomorphismParameters(), talvorix.IsomorphismParameters(*other)
    for name, default, value in zip(names.split(), defaults, other, strict=True):
        assert getattr(record, name) == default and getattr(made, name) == value
        setattr(record, name, value)
    assert repr(record) == repr(made)

    grid = np.exp(np.linspace(-2, 2, 100))
    record = talvorix.IsomorphismParameters(n_iterations=25, n_threads=1)
    iso = talvorix.optimize_isomorphism(grid, np.log(grid), record)
    unseen = np.exp(np.random.default_rng(2).uniform(-1.8, 1.9, 300))
    forth = iso.forward(unseen, 1)
    assert np.abs(forth - np.log(unseen)).max() < 0.1
    assert np.abs(np.array(iso.backward(forth, 1)) - unseen).max() < 0.05 * np.ptp(grid)
    sample = grid[::9], np.log(grid[::9])
    record = talvorix.IsomorphismParameters(kernel_backward="spherical")
    default, named = (talvorix.optimize_isomorphism(*sample, *of) for of in ((), (record,)))
    assert default.serialize() == named.serialize() and default.backward(0) == named.backward(0)
    plain = talvorix.optimize_isomorphism(*sample, talvorix.IsomorphismParameters())
    assert plain.forward(1) == default.forward(1) and plain.backward(0) != default.backward(0)
    constant = talvorix.optimize_isomorphism([1.0] * 9, sample[0][:9])
    assert np.isnan(constant.forward([1.0, 2.0])).all()


@pytest.mark.quick
def test_bad_input():
    x, y = pairs(30)
    threes = "parameters has 4 entries; they must come in threes"
    of_samples, record = talvorix.optimize_isomorphism, talvorix.IsomorphismParameters
    for text, call, *arguments in [
        (threes, talvorix.Projection, [0, 1, 2, 3]),
        (threes, talvorix.Isomorphism, ([], [0, 1, 2, 3])),
        ("target.* has 29 entries but source.* has 30", fit, x, y[1:]),
        ("source is empty", fit, [], []),
        ("source_data is empty", of_samples, [], []),
        ("target_data is empty", of_samples, x, []),
        ("n_centers_backward must be", of_samples, x, y, record(n_centers_backward=-1)),
    ]:
        with pytest.raises(ValueError, match=text):
            call(*arguments)
    for name in ("n_centers", "n_partitions", "n_iterations", "min_partition_size"):
        with pytest.raises(ValueError, match=f"{name} must be 0 or more, but is -1"):
            fit(x, y, **{name: -1})
    with pytest.raises(ValueError, match="max_partition_size is 4, below min_partition_size"):
        fit(x, y, max_partition_size=4)
    with pytest.raises(TypeError):
        talvorix.Projection([0, 1, 2]).forward([[1.0], [2.0]])
