"""Samplers, the tables drawn from them, and the transform between two tables."""

import numpy as np
import pytest
import scipy.stats
import talvorix
from literal import Engine
from literal_distributions import SAMPLERS, prob, quantile, simulate_in_threads

pytestmark = pytest.mark.quick

DATA = ([5.0, 1.0, 2.5, 2.5, 9.0, -3.0], [1.0, 2.0, 0.0, 3.0, 0.5, 1.5])


def pair_mixture(x):
    """The distribution function of two data 0 and 1: of u / (u + v) for uniform u and v."""
    return np.where(x < 0.5, x / (2 * (1 - x)), 1 - (1 - x) / (2 * x))


# Every branch of every sampler, with the distribution that it should be.
CASES = [
    ("gaussian", (), scipy.stats.norm()),
    ("gaussian", (3, -2), scipy.stats.norm(3, 2)),
    ("uniform", (2, -1), scipy.stats.uniform(-1, 3)),
    ("lognormal", (0.5, 0.3), scipy.stats.lognorm(0.3, scale=np.exp(0.5))),
    *(
        ("gamma", (alpha, 3), scipy.stats.gamma(alpha, scale=3))
        for alpha in (0.3, 1, 1.2, 2, 7, 7.5, 19, 20, 33.3)
    ),
    ("exponential", (4,), scipy.stats.expon(scale=1 / 4)),
    ("weibull", (1.7, 3), scipy.stats.weibull_min(1.7, scale=3)),
    ("extreme_value", (1, 2), scipy.stats.gumbel_r(1, 2)),
    ("chi_squared", (1,), scipy.stats.chi2(1)),
    ("chi_squared", (6,), scipy.stats.chi2(6)),
    ("cauchy", (1, 2), scipy.stats.cauchy(1, 2)),
    *(
        ("fisher_f", shapes, scipy.stats.f(*shapes))
        for shapes in ((1, 1.5), (3, 5), (1, 4), (4, 1))
    ),
    ("student_t", (3.5,), scipy.stats.t(3.5)),
    ("data", ([0, 1],), pair_mixture),
    ("data", DATA, None),
    ("data", (sorted(DATA[0]),), None),
]


def make(kind, parameters=()):
    return getattr(talvorix, f"{kind}_distribution")(*parameters)


@pytest.mark.parametrize(("kind", "parameters", "expected"), CASES)
def test_draws(kind, parameters, expected):
    for seed in (1, -5, 2**32 + 7):
        dist, rng, engine = make(kind, parameters), talvorix.RNG(seed), Engine(seed)
        draws = [SAMPLERS[kind](engine, *parameters) for _ in range(300)]
        np.testing.assert_allclose([dist(rng) for _ in range(300)], draws, rtol=1e-9, atol=1e-12)
        assert make("uniform", (0, 1))(rng) == engine.uniform(), "another number of uniforms"
        assert dist.simulate(300, seed) == pytest.approx(draws, rel=1e-9, abs=1e-12)
    if expected is not None:
        cdf = getattr(expected, "cdf", expected)
        assert scipy.stats.kstest(dist.simulate(20_000, 3), cdf).pvalue > 1e-3


@pytest.mark.parametrize(
    "kind, parameters", [("gaussian", (1, 3)), ("gamma", (0.4, 2)), ("data", DATA)]
)
def test_threads_have_engines_of_their_own(kind, parameters):
    for n_threads in map(talvorix.check_n_threads, (1, 2)):
        dist = make(kind, parameters)
        after_one = dist.simulate(2, 9) if kind != "gaussian" else [dist(talvorix.RNG(9))]
        for n in (0, 1, 2, 301):
            expected = simulate_in_threads(kind, parameters, n, -4, n_threads)
            assert dist.simulate(n, -4, n_threads) == pytest.approx(expected, rel=1e-9)
        # What was kept before is there still, and no worker has taken it.
        if kind == "gaussian":
            after_one.append(dist(talvorix.RNG(1234)))
        assert after_one == make(kind, parameters).simulate(2, 9)
    everywhere = dist.simulate(N=50)
    assert everywhere == dist.simulate(50, 12515, -1) == dist.simulate(50, n_threads=0)
    assert dist.simulate(n=50) == dist.simulate(50) == dist.simulate(50, 12515) != everywhere


def test_the_second_normal_of_a_pair_is_kept_between_calls_of_every_kind():
    engine, dist = Engine(1), make("gaussian")
    first, kept, third, fourth = (engine.normal() for _ in range(4))
    assert dist(talvorix.RNG(1)) == pytest.approx(first)
    table = talvorix.CDF(dist, 2, 1)  # the kept one, then the first of the same pair again
    assert sorted([first, kept]) == pytest.approx([table.min(), table.max()])
    assert dist.histogram(1) == pytest.approx([kept])
    assert dist.cdf(3, 1)[0] == pytest.approx(sorted([first, kept, third]))
    assert dist.simulate(1, 5) == pytest.approx([fourth])


def test_samples_in_order():
    dist = make("student_t", (1,))
    draws = dist.simulate(999, 8)
    values, probs = dist.cdf(999, 8)
    assert values == dist.histogram(999, 8) == sorted(draws)
    assert probs == [0.0, *np.cumsum(np.full(998, 1 / 999))] and probs[-1] < 1
    assert make("gamma", (0, 1)).histogram(5) == [0.0] * 5
    # A mixture with a datum that is not a number is none either; those come last.
    holed = make("data", ([np.nan, 3, 2, 1, 0],))
    np.testing.assert_array_equal(holed.histogram(500, 1), np.sort(holed.simulate(500, 1)))
    assert np.isnan(talvorix.CDF(holed, 500).max()) and talvorix.CDF(holed, 500).min() < 1


@pytest.mark.parametrize("n", [1, 2, 3, 40, 700])
def test_tables_are_read_as_they_should_be(n):
    def dist():
        return make("data", ([0.0, 0.0, 1.0, 10.0],))

    table = dist().histogram(n, 77)
    cdf, pdf = talvorix.CDF(dist(), n, 77), talvorix.PDF(dist(), n, 77)
    around = np.random.default_rng(n).uniform(table[0] - 1, table[-1] + 1, 2500)
    values = [*table, *np.nextafter(table, 99), *around, np.nan, np.inf, -np.inf, -0.0]
    steps = np.arange(n + 1) / n
    probs = [*steps, *np.nextafter(steps, -9), *np.random.default_rng(1).uniform(-0.1, 1.1, 2500)]
    probs += [np.nan, np.inf, -np.inf, 1e300, 3000.0 * 2**31, -0.0, -1e-300]

    assert [cdf.prob(v) for v in values] == [prob(table, v) for v in values]
    assert [cdf.value(p) for p in probs] == [quantile(table, p) for p in probs]
    assert [pdf.prob(v, 0.3) for v in values] == [
        (prob(table, v + 0.3) - prob(table, v - 0.3)) / (2 * 0.3) for v in values
    ]
    assert [pdf.value(p, 0.02) for p in probs] == [
        (quantile(table, p - 0.02) + quantile(table, p + 0.02)) * 0.5 for p in probs
    ]
    for n_threads in (0, 1, 2):
        assert cdf.probs(np.array(values), n_threads) == [cdf.prob(v) for v in values]
        assert cdf.values(probs, n_threads) == [cdf.value(p) for p in probs]
        assert pdf.probs(values, n_threads=n_threads) == [pdf.prob(v) for v in values]
        assert pdf.values(probs, n_threads=n_threads) == [pdf.value(p) for p in probs]
    for view in (cdf, pdf):
        assert (view.min(), view.max()) == (table[0], table[-1])
        quartiles = [quantile(table, p) for p in (0.5, 0.75, 0.9)]
        assert [view.median(), view.q75(), view.q90()] == quartiles
        assert view.probs([]) == view.values([]) == []


def test_tables_of_known_distributions():
    norm, x = scipy.stats.norm(2, 3), np.linspace(-6, 10, 200)
    cdf = talvorix.CDF(make("gaussian", (2, 3)))
    assert np.abs(cdf.probs(x) - norm.cdf(x)).max() < 2e-3
    p = np.linspace(0.01, 0.99, 99)
    np.testing.assert_allclose(cdf.values(p), norm.ppf(p), atol=0.05)
    density = talvorix.PDF(make("gaussian", (2, 3))).probs(x, 0.2)
    np.testing.assert_allclose(density, norm.pdf(x), atol=4e-3)


def test_normal_scores():
    def sources():
        return make("lognormal", (0, 1)), make("gaussian")

    n, seed = 20_000, 5
    scores = talvorix.NScore(*sources(), n, seed)
    source, target = (talvorix.CDF(dist, n, seed) for dist in sources())
    z = [*make("lognormal", (0, 1)).simulate(5000, 1), -1.0, 0.0, 1e9, source.min(), source.max()]
    forward = scores.forward(z)
    assert forward == target.values(source.probs(z)) == [scores.forward(value) for value in z]
    assert scores.forward(np.array(z), n_threads=1) == scores.forward(z=z, n_threads=2) == forward
    assert scipy.stats.kstest(forward[:5000], "norm").pvalue > 1e-3
    assert forward[-5:-1] == [target.min(), target.min(), target.max(), target.min()]
    back = scores.backward(forward)
    assert back == source.values(target.probs(forward)) == [scores.backward(y) for y in forward]
    step = np.array(target.probs(forward)) - source.probs(z)
    assert np.abs(step[:5000]).max() < 2 / n
    assert scores.forward([]) == scores.backward([]) == [] and scores.forward(1) == scores.forward(
        1.0
    )

    same = talvorix.NScore(make("uniform", (0, 1)), make("uniform", (0, 1)), 1000)
    table = make("uniform", (0, 1)).histogram(1000, 12145)
    np.testing.assert_allclose(same.forward(table[1:-1]), table[1:-1], atol=2e-3)


def test_weights():
    data = make("data", (np.array([3, 1, 2]), np.array([0, 1, 0])))
    assert all(1 <= z <= 2 for z in data.simulate(500))
    # Beyond the data a longer list of weights means the last datum, a shorter one the first ones.
    assert make("data", ([0.0, 1.0], [0, 0, 1])).simulate(50) == [1.0] * 50
    assert all(0 <= z <= 1 for z in make("data", ([0.0, 1.0, 7.0], [2.0])).simulate(50))
    for odd in ([0, 0, 0, 0], [np.nan] * 4, [1, np.nan, 1, 1], [1, -3, 1, 2], [np.inf] * 4):
        assert all(0 <= z <= 9 for z in make("data", ([0, 1, 4, 9], odd)).simulate(2000))
    assert np.isnan(make("data", ([np.nan, 2, np.nan, 1],)).simulate(50)).any()


def test_bad_input():
    dist = make("uniform", (0, 1))
    for few in ([], [1.0]):
        with pytest.raises(ValueError, match=r"^Data must have at least 2 elements$"):
            make("data", (few,))
    with pytest.raises(ValueError, match="weight has 2 entries but data has 3"):
        make("data", ([3, 1, 2], [1, 1]))
    for n in (0, -1, 2**31):
        for build in (talvorix.CDF, talvorix.PDF):
            with pytest.raises(ValueError, match=f"N must be from 1 to 2147483647, but is {n}"):
                build(dist, n)
        with pytest.raises(ValueError, match=f"n must be from 1 to 2147483647, but is {n}"):
            talvorix.NScore(dist, dist, n=n)
    assert dist.simulate(0) == dist.simulate(N=0) == dist.histogram(0) == []
    assert dist.cdf(0) == ([], [])
    for draw in (dist.simulate, dist.histogram, dist.cdf, lambda n: dist.simulate(N=n)):
        with pytest.raises(ValueError, match="must be 0 or more, but is -2"):
            draw(-2)
    cdf = talvorix.CDF(dist, 5)
    for call in (
        talvorix.Distribution,
        talvorix.RNG,
        lambda: dist(1),
        lambda: dist.simulate(2.5),
        lambda: talvorix.CDF([1, 2]),
        lambda: cdf.probs([["a"]]),
        lambda: make("data", ("12",)),
        lambda: make("uniform", (0,)),
    ):
        with pytest.raises(TypeError):
            call()
