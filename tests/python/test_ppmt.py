"""The multivariate transform to independent normal scores, and the matrices it turns data by."""

import numpy as np
import pytest
import scipy.stats
import talvorix
from literal import Engine


def record(**changes):
    quick = dict(n_centers_forward=5, n_centers_backward=6, n_partitions=4, n_iterations=5)
    return talvorix.IsomorphismParameters(**{**quick, "n_threads": 1, **changes})


def fitted(data, n_steps, n_threads=1, **changes):
    settings = {"iso_params": record(), "n_bins": 20, **changes}
    return talvorix.PPMT(data, n_steps, n_threads=n_threads, **settings)


def banana(n, seed=1):
    """Two variables with little correlation, the second nearly a function of the first."""
    rng = np.random.default_rng(seed)
    x = rng.normal(size=n)
    return np.column_stack([np.exp(0.4 * x), x * x + 0.4 * rng.normal(size=n)]) * [3, 50] + [7, 0]


def orthogonal(engine, n, min_v, max_v):
    filled = min_v + np.array([engine.uniform() for _ in range(n * n)]) * (max_v - min_v)
    done = []
    for column in filled.reshape(n, n).T:
        for other in done * 2:  # the second time for what rounding left
            column = column - (column @ other) * other
        done.append(column / np.linalg.norm(column))
    matrix = np.array(done).T
    matrix[:, -1] *= np.sign(np.linalg.det(matrix))
    return matrix


@pytest.mark.quick
def test_random_matrices():
    for n, min_v, max_v, seed in [
        *((n, -10, 10, n) for n in (1, 2, 3, 4, 7, 20)),
        *((3, -1, 2, seed) for seed in range(-3, 3)),
        *[(2, 1, -1, 1), (5, 0, 1e-100, 9), (40, 5.0, 6.0, 2**32 + 1)],
    ]:
        matrix = talvorix.create_random_orthogonal_matrix(n, min_v, max_v, seed)
        np.testing.assert_allclose(matrix, orthogonal(Engine(seed), n, min_v, max_v), atol=1e-9)
        np.testing.assert_allclose(matrix.T @ matrix, np.eye(n), atol=1e-13)
        assert np.linalg.det(matrix) == pytest.approx(1)
        twice = talvorix.create_random_rotation(N=n, min_v=min_v, max_v=max_v, seed=seed)
        np.testing.assert_allclose(twice, matrix @ matrix, atol=1e-13)
    for n in (0, -1, 2**40):
        with pytest.raises(ValueError, match=f"N must be from 1 to 2147483647, but is {n}"):
            talvorix.create_random_orthogonal_matrix(n, 0, 1, 1)
    for ends in ((1, 1), (np.nan, 1), (0, np.inf)):
        with pytest.raises(ValueError, match=r"min_v is .* max_v is .* finite and differ"):
            talvorix.create_random_rotation(3, *ends, 1)


@pytest.mark.quick
@pytest.mark.parametrize("shape", [(9, 3), (3, 9), (4, 4), (1, 5), (5, 1), (1, 1), (60, 40)])
@pytest.mark.parametrize("is_surface", [False, True])
def test_decompositions(shape, is_surface):
    rng, k, square = np.random.default_rng(4), min(shape), (shape[1], shape[1])
    shapes = [(shape[0], k), (k,), (shape[1], k)]
    for A in (
        rng.normal(size=shape) + 3,
        np.asfortranarray(rng.normal(size=shape) * 1e200),
        rng.integers(-5, 5, shape).tolist(),
        np.zeros(shape),
    ):
        scale = np.abs(A).max() + 1e-300
        of = np.array(A, float) / scale
        of -= np.mean(of, axis=0) if is_surface else 0
        U, s, V = talvorix.compute_svd_decomposition(A, is_surface)
        rotation, inverse, u, same_s = talvorix.compute_optimum_rotation(A, is_surface=is_surface)
        assert [U.shape, s.shape, V.shape] == shapes and rotation.shape == square
        np.testing.assert_array_equal(inverse, rotation.T)
        for found, expected in [
            (U * (s / scale) @ V.T, of),
            (u * (same_s / scale), of @ rotation[:, :k]),
            *((each / scale, np.linalg.svd(of, compute_uv=False)) for each in (s, same_s)),
            *((factor.T @ factor, np.eye(factor.shape[1])) for factor in (U, V, rotation)),
        ]:
            np.testing.assert_allclose(found, expected, atol=1e-12)
    holed = np.ones(shape)
    holed[-1, -1] = np.nan
    nowhere = talvorix.compute_svd_decomposition(holed), talvorix.compute_optimum_rotation(holed)
    assert [factor.shape for factor in nowhere[0]] == shapes and nowhere[1][0].shape == square
    assert all(np.isnan(factor).all() for factors in nowhere for factor in factors)


def moments(X):
    """As the steps add them up: rounding decides the signs of axes of standardised data."""
    mean = np.cumsum(X / len(X), axis=0)[-1]
    return mean, np.sqrt(np.cumsum((X - mean) * (X - mean) / len(X), axis=0)[-1])


def each_column(maps, Y):
    return np.column_stack([of(y, 1) for of, y in zip(maps, Y.T, strict=True)])


def literal_steps(data, n_steps, iso_params, seed, min_v, max_v, tol, n_bins):
    """Steps with random rotations, all but the first; maps and tables are the module's own."""

    def bins(distribution, values=None):
        table = talvorix.CDF(distribution, 200_000, 121515)
        inner = [table.value(i / (n_bins + 3)) for i in range(1, n_bins + 1)]
        lo, hi = (f(inner if values is None else values) for f in (min, max))
        return sorted([lo - (hi - lo) * tol, *inner[1:-1], hi + (hi - lo) * tol])

    master, normal = Engine(seed), bins(talvorix.gaussian_distribution(0, 1))
    for s in range(n_steps):
        engine, (mean, std) = Engine(master.raw()), moments(data)
        rotation, u = talvorix.compute_optimum_rotation((data - mean) / std)[0], engine.uniform()
        if s > 0:
            once = orthogonal(engine, data.shape[1], min_v, max_v)
            rotation = once @ once
        Y = (data - mean) / std @ rotation
        sources = [bins(talvorix.data_distribution(y), y) for y in Y.T]
        maps = [talvorix.optimize_isomorphism(of, normal, iso_params) for of in sources]
        Y = each_column([iso.forward for iso in maps], Y)
        yield u, mean, std, rotation, maps, *moments(Y)
        data = (Y - moments(Y)[0]) / moments(Y)[1]


@pytest.mark.parametrize("rest", [(3, -10, 10, 0.1, 25), (-4, -1, 3, 0.3, 17)])
def test_steps(rest):
    data = np.column_stack([banana(150), banana(150, 2)[:, 1] + banana(150)[:, 0] * 9])
    # Few steps of the solver, which would enlarge differences by rounding.
    settings = record(kernel_backward="gaussian", n_iterations=3)
    steps = list(literal_steps(data, 2, settings, *rest))
    forth = there = data[::2] * 1.01
    back = here = np.random.default_rng(6).normal(size=(300, 3))
    for _, mean, std, rotation, maps, post_mean, post_std in steps:
        there = each_column([iso.forward for iso in maps], (there - mean) / std @ rotation)
        there = (there - post_mean) / post_std
    for _, mean, std, rotation, maps, post_mean, post_std in steps[::-1]:
        here = each_column([iso.backward for iso in maps], here * post_std + post_mean)
        here = here @ rotation.T * std + mean
    u = steps[1][0]
    found = talvorix.PPMT(data, 2, u, settings, 1, *rest)
    np.testing.assert_allclose(found.forward(forth, 1), there, atol=1e-8)
    np.testing.assert_allclose(found.backward(back, 1), here, atol=1e-6)
    # Less probable, the second rotation is of the kind of the first, whatever the probability.
    other = talvorix.PPMT(data, 2, np.nextafter(u, 0), settings, 1, *rest)
    first = talvorix.PPMT(data, 1, 1.0, settings, 1, *rest)
    second = talvorix.PPMT(first.forward(data), 1, 1.0, settings, 1, *rest)
    np.testing.assert_array_equal(other.forward(forth), second.forward(first.forward(forth)))
    np.testing.assert_array_equal(other.backward(back), first.backward(second.backward(back)))


def test_scores_are_normal_and_independent():
    data, unseen = banana(600), banana(500, 2)
    settings = record(n_centers_forward=12, n_centers_backward=14, n_partitions=10, n_iterations=40)
    scores = talvorix.PPMT(data, 3, iso_params=settings, n_threads=1, seed=1, n_bins=250)

    def dependence(of):
        pairs = [of, np.abs(of)]
        return max(abs(scipy.stats.spearmanr(a[:, 0], b[:, 1])[0]) for a in pairs for b in pairs)

    forth, of_unseen = scores.forward(data, 1), scores.forward(unseen, 1)
    np.testing.assert_allclose([forth.mean(0), forth.std(0) - 1], 0, atol=1e-9)
    for result, original, off in ((forth, data, 0.05), (of_unseen, unseen, 0.1)):
        assert all(scipy.stats.kstest(column, "norm").statistic < off for column in result.T)
        assert dependence(original - original.mean(0)) > 0.7
        assert dependence(result) < 2 * off and abs(np.corrcoef(result.T)[0, 1]) < 2 * off
    error = np.abs(scores.backward(of_unseen, 1) - unseen) / data.std(0)
    assert np.median(error) < 0.06 and np.quantile(error, 0.9) < 0.35
    # Beyond the data by a span, and normal scores that no datum has.
    low, high = data.min(0), data.max(0)
    beyond = [2 * low - high, 2 * high - low, [low[0], 2 * high[1]]]
    assert np.isfinite(scores.forward(beyond)).all()
    assert np.isfinite(scores.backward(np.random.default_rng(1).normal(size=(2000, 2)) * 2)).all()


def test_samples_tables_and_threads():
    data = banana(600)
    centred = data - data.mean(0)
    found = fitted(data, 2)
    forth, back = found.forward(data, 1), found.backward(centred, 1)
    for way, result, source in ((found.forward, forth, data), (found.backward, back, centred)):
        assert isinstance(way([1, 2]), list) and way([1, 2]) == [*way([[1, 2]])[0]]
        for i in (0, 255, 256, 599):
            assert way(u=[*source[i]]) == way(source[i]) == [*way(source[i : i + 1])[0]]
            assert way(source[i]) == [*result[i]]
        for n_threads in (2, 0):
            np.testing.assert_array_equal(way(data=source, n_threads=n_threads), result)
        np.testing.assert_array_equal(way(np.asfortranarray(source)[::-2]), result[::-2])
        assert way(np.empty((0, 2))).shape == (0, 2) and np.isnan(way([np.nan, 1.0])).all()
        for odd in ([1.0], [1.0, 2.0, 3.0], [], np.ones((4, 3)), np.empty((0, 3))):
            with pytest.raises(ValueError, match=r"has \d variables but .* fitted to 2"):
                way(odd)
    for n_threads, inner in ((2, 1), (0, 0)):
        again = fitted(data, 2, n_threads, iso_params=record(n_threads=inner))
        np.testing.assert_array_equal(again.forward(data, 1), forth)
        np.testing.assert_array_equal(again.backward(centred, 1), back)
    same, one = fitted(data, 0), fitted(data[:, :1], 1)
    for way in (same.forward, same.backward):
        assert np.array_equal(way(data), data) and way(data) is not data and way([3, 4]) == [3, 4]
    np.testing.assert_array_equal(one.forward(data[:3, :1])[1], one.forward([data[1, 0]]))
    records = [{}, {"kernel_backward": "spherical"}]
    plain, spherical = (talvorix.IsomorphismParameters(**changes) for changes in records)
    by_default = talvorix.PPMT(data[:4], 1, n_bins=8, n_threads=1)
    plain, spherical = (fitted(data[:4], 1, n_bins=8, iso_params=of) for of in (plain, spherical))
    assert by_default.forward([8, 9]) == spherical.forward([8, 9]) == plain.forward([8, 9])
    assert by_default.backward([0, 1]) == spherical.backward([0, 1]) != plain.backward([0, 1])


def test_progress_is_printed(capfd):
    axes = [f"optimizing isomorphism for dimension {i}/2\n" for i in (1, 2)]
    fitted(banana(30), 0)
    fitted(banana(30), 2)
    assert capfd.readouterr() == ("".join(["Step 0\n", *axes, "Step 1\n", *axes]), "")
    fitted(banana(30), 1, n_threads=2)
    lines = capfd.readouterr().out.splitlines(keepends=True)
    assert lines[0] == "Step 0\n" and sorted(lines[1:]) == axes


@pytest.mark.quick
def test_bad_input():
    data = banana(30)
    for n_threads in (1, 2):
        constant = fitted(data * [1, 0] + [0, 3], 2, n_threads)
        assert np.isnan(constant.forward(data)).all()
    holed, infinite = data.copy(), data.copy()
    holed[3, 1], infinite[0, 0] = np.nan, -np.inf
    ragged = "row 1 of a table has 1 entries but row 0 has 2"
    for text, bad, changes in [
        ("data has 0 rows and 2 columns", np.empty((0, 2)), {}),
        ("data has 1 rows and 2 columns", data[:1], {}),
        ("data has 30 rows and 0 columns", data[:, :0], {}),
        ("row 3, column 1 of data is -?nan; every value must be finite", holed, {}),
        ("row 0, column 0 of data is -inf; every value must be finite", infinite, {}),
        (ragged, [[1, 2], [3]], {}),
        ("n_steps must be 0 or more, but is -1", data, {"n_steps": -1}),
        ("n_bins must be 2 or more, but is 1", data, {"n_bins": 1}),
        ("n_iterations must be", data, {"iso_params": record(n_iterations=-1)}),
        ("min_v is 1.* and max_v is 1", data, dict(min_v=1, max_v=1, prob_random_rotation=1)),
    ]:
        with pytest.raises(ValueError, match=text):
            fitted(bad, **{"n_steps": 2, **changes})
    for decompose in (talvorix.compute_svd_decomposition, talvorix.compute_optimum_rotation):
        for empty in (np.empty((0, 3)), np.empty((3, 0)), []):
            with pytest.raises(ValueError, match=r"A has . rows and . columns; it needs entries"):
                decompose(empty)
        with pytest.raises(ValueError, match=ragged):
            decompose([[1, 2], [3]])
        with pytest.raises(TypeError):
            decompose(np.ones((2, 2)) * 1j)
