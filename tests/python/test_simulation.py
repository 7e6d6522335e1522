"""Random fields against literal readings and the laws they follow; what conditioning promises."""

import literal_simulation as literal
import numpy as np
import pytest
import talvorix as t
from scipy import stats
from talvorix import FIM, TBSIM
from test_estimation import covariances
from test_selection import BOTH_COUNTS

pytestmark = pytest.mark.filterwarnings("ignore::RuntimeWarning")
quick, Factory, Generator = pytest.mark.quick, t.SimulatorFactory, t.SimulatorGenerator
SHAPE, TINY = (40, 30, 9, 30, -20, 10), ("exponential", 0.4, (0.01, 0.02, 0.014, 1, 2, 3))
ONE, OTHER = ("spherical", 0.5, SHAPE), ("gaussian", 0.3, (50, 60, 70, 5, 0, 0))
MODEL = [ONE, TINY, OTHER, ("nugget", 0.2, None)]
BOX, X = np.random.default_rng(2).uniform(-1, 1, (2, 90, 3)) * [[[50, 30, 10]], [[70, 42, 14]]]
COVS, ALL = covariances(MODEL), t.check_n_threads(0)
LOCAL = t.LocalCovariances(X[:2], [COVS[:3:2]] * 2, [1, 2])


def assert_same(field, expected, x=X):
    for n_threads in BOTH_COUNTS:
        found = field.simulate(x, n_threads)
        np.testing.assert_allclose(found, expected(x, n_threads), rtol=1e-9, atol=1e-9)
    np.testing.assert_allclose([field(u) for u in x], expected(x), rtol=1e-9, atol=1e-9)


@quick
@pytest.mark.parametrize("kind", ["gaussian", "spherical", "exponential", "nugget", None])
def test_fields(kind):
    x = np.vstack([X[:20], [[1e300] * 3, [np.nan, 0, 0], [-1e9, 1e9, 0], [np.inf, -np.inf, 5]]])
    # Some lines of TINY are too long for one; those whose scale was drawn large are not.
    for i, shape in enumerate([TINY[2], SHAPE, (40, 30, 9, 0, 0, 0), (40, 30, 9, 0, 0, 0)]):
        given = (kind, 0.7 * i, None if kind == "nugget" else shape) if kind else MODEL
        covs = covariances([given])[0] if kind else COVS
        assert_same(TBSIM(BOX, covs, i - 1, 24), literal.tbsim(BOX, given, i - 1, 24), 3 * X)
        for n in ((8, 7, 6), (5, 4, 9), (1, 2, 1), (2, 0, -3), (4,)):
            for n_threads in BOTH_COUNTS:
                corners = BOX * [(1, 0, 1), (1, 1, 1), (1, 1, 0), (0, 0, 1)][i]
                expected = literal.fim(corners, given, -4, n * (3 // len(n)), n_threads)
                assert_same(FIM(corners, covs, 2**32 - 4, *n, n_threads), expected, x)
    assert_same(Factory.TBSIM(BOX, 9)(COVS, 2**32 + 5), literal.tbsim(BOX, MODEL, 5, 9))
    assert_same(Factory.FIM(BOX, 4, 5, 6, 1)(COVS, 3), literal.fim(BOX, MODEL, 3, (4, 5, 6), 1))
    assert_same(FIM(BOX, COVS, 3, 4, 5, 6), literal.fim(BOX, MODEL, 3, (4, 5, 6), ALL))


@quick
@pytest.mark.parametrize("i", range(5))
def test_generators(i):
    given, covs = (MODEL, COVS) if i == 4 else (MODEL[i], COVS[i])
    bands, fourier = lambda *a: literal.tbsim(*a, 9), lambda *a: literal.fim(*a, (8, 7, 9), 1)
    low_face = lambda *_: lambda nodes, _: (nodes == nodes.min(axis=0)).any(axis=1)  # noqa: E731
    for corners in (BOX, BOX + 30, BOX * [1, 1, 0]):
        turned = Generator.TBSIM(corners, covs, -5, 9, 0, 7)
        expected = literal.generator(corners, given, -5, 7, bands, ALL)
        transformed = Generator.FIM(corners, covs, 6, 8, 7, 9, 1, 5)
        also_expected = literal.generator(corners, given, 6, 5, fourier)
        # Nodes on low faces stand on planes of the other lattice, where rounding decides.
        uncertain = literal.generator(corners, MODEL[:3] if i > 2 else given, 6, 5, low_face)
        for seed in (1, -1):
            assert_same(turned(seed), expected(seed))
            assert_same(transformed(seed), also_expected(seed), X[uncertain(seed)(X) == 0])


@quick
@pytest.mark.parametrize("power", [1, 2 + 5e-7, 3, 2.5])
@pytest.mark.parametrize("max_weight", [0.0, 0.3, 1.0])
def test_blends(power, max_weight):
    x, factory = np.vstack([X, [[1e11, 0, 0]]]), Factory.FIM(BOX, 9, 1)
    for centers in (X[[3]], X[[3, 4, 4]]):
        models = [[cov] for cov in COVS[: len(centers)]]
        fields = literal.seeded([lambda r, m=m: factory(m, r).simulate(x) for m in models], 8)
        d = np.linalg.norm(x[:, None] - centers, axis=2)
        w, e = np.where(d > 0, d ** -round(power, 3), 0), (d == 0) * max_weight
        total, on_the_spot = w.sum(axis=1, keepdims=True), e.sum(axis=1, keepdims=True)
        w, e = np.where(total > 1e-10, w / total, 0), np.where(on_the_spot, e / on_the_spot, 0)
        both = (total > 1e-10) & (on_the_spot > 0)
        shares = np.where(both, w * (1 - max_weight) + e * max_weight, w + e)
        expected = (np.sqrt(shares) * np.transpose(fields)).sum(axis=1)
        assert expected[-1] == 0 and (expected[3] == 0) == (len(centers) == 1 and max_weight == 0)
        args = (t.LocalCovariances(centers, models, [0] * len(centers)), factory, max_weight, power)
        run = t.unconditional_ensemble_simulation(x, *args, 8)
        blended = Generator.Ensemble(*args, 12345)(8).simulate(x)
        np.testing.assert_allclose([run, blended], [expected] * 2, atol=1e-9)


def assert_within_five_standard_errors(samples, expected):
    error = np.std(samples, axis=0) / np.sqrt(len(samples))
    assert (np.abs(np.mean(samples, axis=0) - expected) < 5 * error).all() and error.max() < 0.02


def test_covariance_of_exponential_lines():
    """Not of the exponential model: signs are plus in 5 cells of 6, which adds a periodic part."""
    p, h = (np.arange(1000) + 0.5) / 1000, np.array([0, 0.2, 0.45, 0.7, 1, 1.6])
    scales = np.array([*(stats.gamma(a, scale=1 / 3).ppf(p) for a in (3, 2)), p**0])
    lag = h[:, None, None, None] * p / scales[..., None]
    within, part = np.where(lag < 1, 1 - 3 * lag + 2 * lag**3, 0), lag % 1
    law = (5 / 9 * within + 4 / 9 * (1 - 6 * part * (1 - part))).mean(axis=(1, 2, 3))
    cov = t.Covariance.exponential(1, t.Ellipsoid(20, 20, 20, 0, 0, 0))
    ends = (9 * X[:20] + 20 * np.multiply.outer(h, [0.6, 0, 0.8])[:, None]).reshape(-1, 3)
    made = [TBSIM(ends, cov, seed, 20).simulate(ends, 1) for seed in range(2000)]
    fields = np.reshape(made, (-1, 6, 20))
    assert_within_five_standard_errors((fields[:, :1] * fields).mean(axis=2), law)
    assert_within_five_standard_errors(fields.mean(axis=(1, 2)), 0)


@pytest.mark.parametrize("kind", ["gaussian", "spherical", "exponential"])
def test_covariance_of_fourier_integrals(kind):
    counts, cov = np.array([7, 5, 9]), covariances([(kind, 1.0, (1, 1, 1, 90, 0, 0))])[0]
    nodes = (np.indices(counts).reshape(3, -1).T - 1.5) * 3 / counts
    made = [FIM([[0] * 3, [2] * 3], cov, s, *counts, 1).simulate(nodes, 1) for s in range(2000)]
    waves = np.abs(np.fft.rfftn(literal.circular_covariance(kind, counts, 3 / counts)))
    waves[:, :, 0] /= 2  # the two halves of these have phases of their own instead of mirrored ones
    spectra = np.abs(np.fft.fftn(np.reshape(made, (-1, *counts)), axes=(1, 2, 3))) ** 2
    found = np.fft.ifftn(spectra, axes=(1, 2, 3)).real / counts.prod()
    assert_within_five_standard_errors(found, np.fft.irfftn(waves, counts, (0, 1, 2)))
    assert_within_five_standard_errors(np.mean(made, axis=1), 0)


@quick
def test_conditioning():
    data, z, nei = BOX[:60], np.sin(BOX[:60, 0]), t.Neighborhood(BOX[:60])
    covs, x, factory = COVS[:3:2], np.vstack([data, X]), Factory.TBSIM(X, 20)
    kriging = [t.SimpleKriging(covs, 0.3, 12), t.OrdinaryKriging(covs, 12)]
    local, rules = (LOCAL, covs[0].ellipsoid), (12, -1, 1, 3, 2.0, 0.9)
    for n_threads in BOTH_COUNTS:
        for estimator in (*kriging, t.IDW(2.0, max_neighbors=9)):
            fields = TBSIM(X, covs, 4, 30), FIM(X, covs, 4, 16)
            together = t.simulate(estimator, x, nei, data, z, fields, n_threads)
            for field, also in zip(fields, together, strict=True):
                run = t.simulate(estimator, x, nei, data, z, field, n_threads)
                rest = estimator(x, nei, data, z - field.simulate(data))
                np.testing.assert_allclose(run, np.add(field.simulate(x), rest), atol=1e-9)
                np.testing.assert_allclose(also, run, atol=1e-13)
                assert np.allclose(run[:60], z, atol=1e-8) == (estimator in kriging)
        run = t.ensemble_simulation(x, data, z, *local, factory, *rules, 7, n_threads)
        free = t.unconditional_ensemble_simulation(x, local[0], factory, 0.9, 2, 7)
        rest = t.ensemble_estimation(x, data, z - free[:60], *local, *rules)
        np.testing.assert_allclose(run, np.add(free, rest), atol=1e-9)


REFUSED = {
    "is empty": "TBSIM([], ONE, 1)|FIM([], [ONE], 1)|Generator.FIM([], ONE, 1)|Factory.FIM([])",
    "must be": "TBSIM(X, [ONE], 1, 0)|Generator.FIM(X, ONE, 1, 5, 5, 5, 1, 0)|Factory.TBSIM(X, -3)",
    "data has 1 entries": "t.simulate(t.IDW(), X, t.Neighborhood(X), X, [1], TBSIM(X, ONE, 1, 2))"
    "|t.ensemble_simulation(X, X, [1], LOCAL, E, Factory.TBSIM(X), 1, 1, 1, 1, 1, 1, 1)",
    "neighborhood has 90": "t.simulate(t.IDW(), X, t.Neighborhood(X), X[:1], [1], FIM(X, ONE, 1))",
    "No constructor": "Generator()|Factory()",
    "incompatible": "TBSIM(X, ONE, 1, 2**31)|FIM(X, ONE, 1, 2, 2, 2**31)|FIM(X, ONE, 1.5)",
}


@quick
def test_what_is_refused():
    names = globals() | {"ONE": COVS[0], "E": COVS[0].ellipsoid}
    for text, calls in REFUSED.items():
        for call in calls.split("|"):
            with pytest.raises((ValueError, TypeError), match=text):
                eval(call, names)
