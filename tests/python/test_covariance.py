"""Kernels, structures, models and the models drawn at random."""

import numpy as np
import pytest
import talvorix
from literal import KERNELS, Engine, Model, anisotropy_matrix

pytestmark = pytest.mark.quick

A = (100, 50, 10, 35, -20, 15)
B = (300, 200, 80, 120, 5, -40)


def test_kernels_are_their_formulas():
    h = np.concatenate([[0, 1, 1 + 1e-12], np.linspace(0, 3, 50)])
    for name in ("spherical", "gaussian", "exponential"):
        kernel = getattr(talvorix.Kernel, name)
        np.testing.assert_allclose([kernel(x) for x in h], KERNELS[name](h), atol=1e-15)
        assert kernel(0) == 1 and np.isnan(kernel(np.nan))
    with pytest.raises(AttributeError):
        talvorix.Kernel.spherical = None
    with pytest.raises(TypeError, match="No constructor"):
        talvorix.Kernel()


def test_structures_and_their_sum():
    lags = np.random.default_rng(2).normal(0, 60, (300, 3))
    lags[0], lags[1] = 0, 1e-7
    makers = talvorix.Covariance
    covs = [
        makers.spherical(0.3, talvorix.Ellipsoid(*A)),
        makers.gaussian(0.2, talvorix.Ellipsoid(*B)),
        makers.exponential(-0.1, talvorix.Ellipsoid(*B)),
        makers.nugget(0.25),
    ]
    parts = [("spherical", 0.3, A), ("gaussian", 0.2, B), ("exponential", -0.1, B)]
    parts.append(("nugget", 0.25, None))
    for cov, (kind, sill, ellipsoid) in zip(covs, parts, strict=True):
        assert (cov.type, cov.sill) == (kind, sill)
        expected = anisotropy_matrix(*(ellipsoid or (1, 1, 1, 0, 0, 0)))
        np.testing.assert_allclose(cov.ellipsoid.matrix(), expected, atol=1e-15)
        values = Model((kind, sill, ellipsoid))(lags)
        np.testing.assert_allclose([cov(lag) for lag in lags], values, atol=1e-14)
        for name in ("type", "sill", "ellipsoid"):
            with pytest.raises(AttributeError):
                setattr(cov, name, getattr(cov, name))
    total = talvorix.covariance_computer(covs)
    values = Model(*parts)(lags)
    np.testing.assert_allclose([total(lag) for lag in lags], values, atol=1e-14)
    for n_threads in (0, 1, 2):
        np.testing.assert_array_equal(total.simulate(lags, n_threads), [total(lag) for lag in lags])
    assert makers.nugget(0.25)([0, 0, 0]) == 0.25 and makers.nugget(0.25)([0, 1e-7, 0]) == 0
    assert talvorix.covariance_computer([])([1, 2, 3]) == 0.0
    with pytest.raises(TypeError, match="No constructor"):
        talvorix.Covariance()
    with pytest.raises(TypeError, match="No constructor"):
        talvorix.SpatialFunction()


def literal_models(n_kernels, n_covs, seed, delta, ranges, sills):
    """The same draws in the same order; each structure as (sill, matrix)."""
    info = talvorix.Ellipsoid(*A).info()
    largest = max(info.r1(), info.r2(), info.r3())
    engine, models = Engine(seed), []

    def between(low, high):
        return engine.uniform() * (high - low) + low

    for i in range(n_covs):
        sums, vectors = np.zeros(3), []
        for _ in range(n_kernels):
            p = engine.uniform() + ranges[0]
            q = engine.uniform() + p
            s = engine.uniform() + q
            sums += [s, q, p]
            vectors.append(sums / np.linalg.norm(sums) * engine.uniform())
        total = sum(np.linalg.norm(v) for v in vectors)
        scale = between(*ranges)
        matrices, weights = [], []
        for v in vectors:
            if i == 0:
                matrices.append(anisotropy_matrix(*A))
            else:
                angles = [
                    angle + engine.uniform() * 2 * delta - delta
                    for angle in (info.azimuth(), info.dip(), info.rake())
                ]
                matrices.append(anisotropy_matrix(*(largest * v / total * scale), *angles))
            weights.append(between(*sills))
        weights.append(0.0 if i == 0 else between(*sills))
        matrices.append(anisotropy_matrix(1, 1, 1, 0, 0, 0))
        models.append(list(zip(np.array(weights) / sum(weights), matrices, strict=True)))
    engine.shuffle(models)
    return models


@pytest.mark.parametrize("seed", [7, -1])
@pytest.mark.parametrize("n_kernels", [1, 3])
def test_random_models_against_a_literal_reference(seed, n_kernels):
    arguments = (n_kernels, 40, seed, 30.0, (0.2, 1.5), (0.1, 0.9))
    models = talvorix.generate_covariances(
        talvorix.Ellipsoid(*A),
        n_kernels,
        talvorix.Kernel.exponential,
        40,
        seed,
        30.0,
        0.2,
        1.5,
        0.1,
        0.9,
    )
    for model, expected in zip(models, literal_models(*arguments), strict=True):
        assert [c.type for c in model] == ["spherical"] * n_kernels + ["nugget"]
        assert sum(c.sill for c in model) == pytest.approx(1)
        for cov, (sill, matrix) in zip(model, expected, strict=True):
            assert cov.sill == pytest.approx(sill, abs=1e-15)
            np.testing.assert_allclose(cov.ellipsoid.matrix(), matrix, rtol=1e-9, atol=1e-12)
    # The tag reads spherical, but what is evaluated is the kernel that was given.
    lag = np.array([1000.0, 0, 0])
    cov = models[0][0]
    h = np.linalg.norm(cov.ellipsoid.matrix() @ lag)
    assert h > 1 and cov(lag) == pytest.approx(cov.sill * np.exp(-3 * h), rel=1e-9, abs=0)


def test_random_models_at_the_edges():
    def draw(n_kernels, n_covs):
        ellipsoid, kernel = talvorix.Ellipsoid(*A), talvorix.Kernel.gaussian
        return talvorix.generate_covariances(
            ellipsoid, n_kernels, kernel, n_covs, 3, 10, 0.1, 1, 0.1, 1
        )

    assert draw(2, 0) == [] and draw(2, -4) == []
    lone = sorted(model[0].sill for model in draw(0, 5))
    assert [len(model) for model in draw(0, 5)] == [1] * 5
    assert sum(np.isnan(lone)) == 1 and sum(sill == 1 for sill in lone) == 4
