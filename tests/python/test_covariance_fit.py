"""Fits of nested models to variogram maps: recovery, other minimisers, and what they refuse."""

import re

import numpy as np
import pytest
import talvorix
from literal import KERNELS, Model, anisotropy_matrix
from scipy.optimize import least_squares

quick = pytest.mark.quick
fit = talvorix.extract_covariance_from_varmap


def random_lags(n, seed=1):
    lags = np.random.default_rng(seed).uniform(-1, 1, (n, 3)) * [100, 100, 40]
    lags[0] = 0
    return lags


def variogram_of(model, lags):
    return model(np.zeros((1, 3))) - model(lags)


@quick
@pytest.mark.parametrize(
    "kind, n_structures",
    [("spherical", 1), ("gaussian", 1), ("exponential", 1), ("exponential", 2)],
)
def test_a_model_is_found_again_from_its_variogram(kind, n_structures):
    shapes = [(0.9, (95, 40, 15, 35, -20, 10)), (0.4, (30, 12, 8, 80, 5, 30))][:n_structures]
    expected = Model(("nugget", 0.3, None), *((kind, *shape) for shape in shapes))
    lags, total = random_lags(3000), 0.3 + sum(sill for sill, _ in shapes)
    given = (lags, variogram_of(expected, lags), np.ones(3000), n_structures, kind)
    rest = (1, 1, 1, 150, 150, 150, total, 500, 0.5, 0, 0, 2, 0)
    found = [fit(*given, *rest, n_threads, False) for n_threads in (1, 2)]
    assert len(found[0]) == n_structures + 1
    for one, two in zip(*found, strict=True):
        assert one.sill == two.sill and np.array_equal(
            one.ellipsoid.matrix(), two.ellipsoid.matrix()
        )
    *structures, nugget = found[0]
    assert (nugget.type, nugget.sill) == ("nugget", pytest.approx(0.3, abs=1e-3))
    assert {c.type for c in structures} == {kind}
    assert sum(c.sill for c in found[0]) == pytest.approx(total, rel=1e-12)
    structures.sort(key=lambda c: -c.sill)
    for c, (sill, ellipsoid) in zip(structures, shapes, strict=True):
        assert c.sill == pytest.approx(sill, abs=2e-3)
        info = c.ellipsoid.info()
        assert [info.r1(), info.r2(), info.r3()] == pytest.approx(ellipsoid[:3], rel=5e-3)
    f = talvorix.covariance_computer(found[0])
    np.testing.assert_allclose(f.simulate(lags), expected(lags), atol=1e-3)


def literal_cost(lags, variogram, weight, n, kind, low, high, total, b, loss, constant, threshold):
    """Start, bounds, and residuals of a parameter list: those with a loss, and those without."""
    high_, N = np.array(high, float), len(lags)
    factors = (np.linalg.norm(lags, axis=1) / (np.linalg.norm(high_) / 3) + 1e-4) ** -b * weight
    used = np.isfinite(variogram) & ~(variogram > total * threshold) & (factors > 0)
    W, target = factors.sum(), variogram[used] / total

    def residuals(p):
        model = np.where(np.linalg.norm(lags[used], axis=1) < 1e-10, p[-1], 0.0)
        regular = []
        for s, *ranges, x, y, z in p[:-1].reshape(n, 7):
            matrix = anisotropy_matrix(*ranges, *np.degrees([np.pi / 2 - x, -y, z]))
            model = model + s * KERNELS[kind](np.linalg.norm(lags[used] @ matrix.T, axis=1))
            t = 1 + ((np.array(ranges) - high_) / high_) ** 2
            regular += [*constant / n / t, constant / n * 0.001 * (s - 1) ** 2]
        e = 2 * ((1 - model) - target)
        e = np.where(abs(e) > 1, np.sign(e) * (2 * np.sqrt(abs(e)) - 1), e)
        return e * N * factors[used] / W, np.array(regular if constant > 0 else [])

    def cost(p):
        e, regular = residuals(p)
        return (
            (loss**2 * np.log1p((e / loss) ** 2) if loss else e**2).sum() + regular @ regular
        ) / 2

    start = np.array([1 / n, *(high_ + low) / 2, 0, 0, 0] * n + [0.0])
    lower = np.array([1e-4, *low, *[-np.inf] * 3] * n + [1e-4])
    upper = np.array([1, *high, *[np.inf] * 3] * n + [1.0])
    return np.clip(start, lower, upper), (lower, upper), residuals, cost


@pytest.mark.parametrize("loss, constant", [(0.0, 0.0), (0.05, 0.0), (0.0, 3.0)])
@pytest.mark.parametrize("n, kind", [(1, "spherical"), (1, "exponential"), (2, "gaussian")])
def test_no_other_minimiser_ends_lower(capfd, loss, constant, n, kind):
    rng = np.random.default_rng(5)
    lags = random_lags(800)
    truth = Model(("nugget", 0.5, None), (kind, 1.5, (70, 40, 15, 35, -20, 10)))
    variogram = variogram_of(truth, lags) + 0.2 * rng.normal(size=800)
    variogram[::9] = [np.nan, np.inf, *rng.uniform(1, 9, 87)]
    weight = rng.integers(0, 50, 800).astype(float)
    settings = (n, kind, (2, 3, 1), (150, 100, 50), 2.0, 0.8, loss, constant, 2.1)
    start, bounds, residuals, cost = literal_cost(lags, variogram, weight, *settings)
    low, high, total, b, *rest = settings[2:]
    fit(lags, variogram, weight, n, kind, *low, *high, total, 2000, b, *rest, 0, 1)
    output, errors = capfd.readouterr()
    initial, final = (
        float(re.search(rf"{name} +(\S+)", output)[1]) for name in ("Initial", "Final")
    )
    assert initial == pytest.approx(cost(start), rel=1e-5) and final < initial and not errors
    if n > 1:
        return  # several structures have several minima
    other = least_squares(
        lambda p: np.concatenate(residuals(p)), start, bounds=bounds, x_scale="jac", max_nfev=400,
        loss="cauchy" if loss else "linear", f_scale=loss or 1.0,
    )  # fmt: skip
    assert final < cost(other.x) * (1 + 1e-3)


@quick
def test_fits_that_cannot_begin_return_the_start():
    lags, ones = random_lags(50), np.ones(50)
    low, high = (10, 20, 4), (30, 60, 8)
    rest = (2.0, 99, 0.5, 0.0, 5.0, 1.0, 0, 0, False)
    for variogram, weight in ((3 * ones, ones), (ones, 0 * ones), (np.nan * ones, ones)):
        *structures, nugget = fit(lags, variogram, weight, 2, "gaussian", *low, *high, *rest)
        assert nugget.sill == 0.0 and [c.sill for c in structures] == [1.0, 1.0]
        for c in structures:
            assert np.array_equal(c.ellipsoid.matrix(), np.diag([1 / 20, 1 / 40, 1 / 6]))
    (_, nugget) = fit([], [], [], 1, "idw", *low, *high, *rest)
    assert nugget.sill == 0.0
    # Without a step only the bounds are kept: the nugget's is not 0.
    c, nugget = fit(lags, ones, ones, 1, "gaussian", *low, *high, 2.0, 0, *rest[2:])
    assert nugget.sill == pytest.approx(2e-4 / 1.0001) and c.sill + nugget.sill == 2.0


@quick
def test_what_a_fit_refuses_and_prints(capfd):
    lags, ones = random_lags(6), np.ones(6)
    good = [lags, ones, ones, 1, "spherical", 1, 1, 1, 9, 9, 9, 1.0, 5, 0.5, 0.0, 0.0, 1.5, 0, 0]
    for change, message in (
        ({1: ones[:5]}, "variogram has 5 .* lags has 6"),
        ({2: ones[:5]}, "weight has 5 .* lags has 6"),
        ({3: 0}, "n_structures .*0"),
        ({12: -1}, "n_iterations .*-1"),
        ({5: 9}, "min_r1 .* max_r1.* 9 and 9"),
        ({10: 0.5}, "min_r3 .* max_r3.* 1 and 0.5"),
        ({9: np.nan}, "min_r2 .* max_r2"),
        ({9: np.inf}, "max_r2.* finite"),
        ({0: np.where(np.arange(18).reshape(6, 3) == 7, np.inf, lags)}, r"lags\[2\] is not finite"),
        ({2: np.where(np.arange(6) == 4, np.nan, 1)}, r"weight\[4\] is not finite"),
    ):
        with pytest.raises(ValueError, match=message):
            fit(*(change.get(i, argument) for i, argument in enumerate(good)))
    assert capfd.readouterr() == ("", "")
    assert len(fit(*good, debug=False)) == 2 and capfd.readouterr() == ("", "")
    fit(*good)
    output, errors = capfd.readouterr()
    assert "iter " in output and "Solver Summary" in output and errors == ""
