"""Kriging and inverse distance weighting against systems written out in full."""

import numpy as np
import pytest
import talvorix
from literal import Model, krige, thinned

pytestmark = pytest.mark.quick

SEARCH = (90, 60, 30, 40, -15, 10)
STRUCTURES = [
    ("nugget", 0.1, None),
    ("spherical", 0.3, (60, 40, 20, 30, 0, 0)),
    ("exponential", 0.4, (120, 60, 50, 100, 10, 5)),
    ("gaussian", 0.2, (25, 20, 15, 30, 0, 0)),
]
LIMITS = [
    {"max_neighbors": 12},
    {"max_neighbors": 30, "max_neighbors_octant": 2},
    {"max_neighbors": 30, "max_neis_by_dhid": 3},
    {"max_neighbors": 40, "max_neighbors_octant": 3, "max_neis_by_dhid": 2},
    {"max_neighbors": 70},
    {"max_neighbors": -1, "max_radius": 0.35},
    {"max_neighbors": 0, "max_radius": -0.4, "max_neis_by_dhid": 4},
]


def covariances(structures):
    makers = talvorix.Covariance
    return [
        getattr(makers, kind)(sill, *([talvorix.Ellipsoid(*e)] if e else []))
        for kind, sill, e in structures
    ]


class Campaign:
    """Data far from the origin, on a few holes, and targets among and beyond them."""

    def __init__(self, offset=(2.29e6, 4.15e5, -900)):
        rng = np.random.default_rng(11)
        self.holes = rng.integers(100, 140, 400) * -7
        self.locations = rng.uniform(0, 100, (400, 3)) + offset
        self.values = rng.lognormal(size=400)
        self.targets = rng.uniform(-20, 120, (150, 3)) + offset
        self.targets[3] = self.locations[5]
        self.targets[4] = np.array(offset) + 1e5  # nothing within any radius
        self.neighborhood = talvorix.Neighborhood(self.locations, talvorix.Ellipsoid(*SEARCH))

    def neighbors(self, target, limits):
        k = limits["max_neighbors"]
        argument = k if k > 0 else float(limits["max_radius"])
        return thinned(
            self.neighborhood.find_neighbors(target, argument),
            self.locations,
            target,
            limits.get("max_neighbors_octant", -1),
            self.holes,
            limits.get("max_neis_by_dhid", -1),
        )

    def input(self):
        return self.targets, self.neighborhood, self.locations, self.values


@pytest.fixture(scope="module")
def campaign():
    return Campaign()


@pytest.mark.parametrize("limits", LIMITS, ids=str)
@pytest.mark.parametrize("mean", [None, 1.4])
def test_kriging_against_full_systems(campaign, limits, mean):
    model, covs = Model(*STRUCTURES), covariances(STRUCTURES)
    given = (campaign.targets, campaign.locations, campaign.values, covs)
    arguments = limits | {"dhids": campaign.holes}
    if mean is None:
        estimator = talvorix.OrdinaryKriging(covs, **arguments)
        run = talvorix.compute_ordinary_kriging
    else:
        estimator = talvorix.SimpleKriging(covs, mean, **arguments)
        given, run = (*given, mean), talvorix.compute_simple_kriging
    estimates, variances = run(*given, campaign.neighborhood, **arguments, n_threads=1)
    expected, sizes = [], []
    for target in campaign.targets:
        near = campaign.neighbors(target, limits)
        sizes.append(len(near))
        if len(near) < 2:
            expected.append((campaign.values[near[0]] if near else np.nan, 0.0))
        else:
            places, values = campaign.locations[near], campaign.values[near]
            expected.append(krige(model, places, values, target, mean))
    assert max(sizes) > 2
    np.testing.assert_allclose(np.transpose([estimates, variances]), expected, rtol=0, atol=1e-7)
    # Neither the order of visiting nor the threads nor the calling form change a bit.
    np.testing.assert_array_equal(estimator(*campaign.input(), n_threads=2), estimates)
    two_threads = run(*given, campaign.neighborhood, **arguments, n_threads=2)
    np.testing.assert_array_equal(two_threads, (estimates, variances))
    backwards = (campaign.targets[::-1], *given[1:])
    again = run(*backwards, campaign.neighborhood, **arguments, n_threads=1)
    np.testing.assert_array_equal(np.array(again)[:, ::-1], (estimates, variances))


def test_many_scattered_and_repeated_targets_are_each_estimated_alone(campaign):
    covs = covariances(STRUCTURES)
    rng = np.random.default_rng(4)
    targets = np.repeat(rng.uniform(0, 100, (400, 3)) + campaign.locations.min(axis=0), 3, axis=0)
    rng.shuffle(targets)
    targets[5], targets[700] = np.nan, np.inf
    given = (campaign.locations, campaign.values, covs, campaign.neighborhood, 8)
    many = np.transpose(talvorix.compute_ordinary_kriging(targets, *given))
    for i in [*range(0, 1200, 37), 5, 700]:
        alone = np.transpose(talvorix.compute_ordinary_kriging(targets[i : i + 1], *given))
        np.testing.assert_array_equal(alone[0], many[i])
    assert np.isnan(many[[5, 700], 0]).all() and (many[[5, 700], 1] == 0).all()


def test_closed_forms_of_kriging():
    line = np.array([[0.0, 0, 0], [10, 0, 0]])
    values, neighborhood = [1.0, 5.0], talvorix.Neighborhood(line)
    simple, ordinary = talvorix.compute_simple_kriging, talvorix.compute_ordinary_kriging
    sphere = talvorix.Ellipsoid(20, 20, 20, 0, 0, 0)
    one = [talvorix.Covariance.spherical(2.0, sphere)]
    # At a datum the estimate is the datum, plus a multiplier of 0; the variance is floored.
    estimates, variances = ordinary([[0, 0, 0]], line, values, one, neighborhood, 2)
    assert estimates == [pytest.approx(1)] and variances == [1e-10]
    # Halfway, by symmetry, half of each; the multiplier is C(5) - (C(0) + C(10)) / 2.
    estimates, variances = ordinary([[5, 0, 0]], line, values, one, neighborhood, 2)
    c5, c10 = one[0]([5, 0, 0]), one[0]([10, 0, 0])
    multiplier = c5 - (2 + c10) / 2
    assert estimates == [pytest.approx(3 + multiplier)]
    assert variances == [pytest.approx(2 - c5 - multiplier)]
    # Nothing is known beyond the range, or without a model.
    far = [[500.0, 0, 0]]
    assert simple(far, line, values, one, 7.5, neighborhood, 2) == ([7.5], [2.0])
    assert simple(far, line, values, [], 7.5, neighborhood, 2) == ([7.5], [1e-10])
    estimates, variances = ordinary(far, line, values, [], neighborhood, 2)
    assert np.isfinite(estimates + variances).all()
    # One datum is itself, with variance 0; none is NaN.
    assert ordinary(far, line, values, one, neighborhood, 1) == ([5.0], [0.0])
    estimates, variances = ordinary(far, line, values, one, neighborhood, -1, 3)
    assert np.isnan(estimates[0]) and variances == [0.0]
    assert ordinary([], line, values, one, neighborhood, 2) == ([], [])
    # A radius plays no part beside a count of neighbours; left at its default it is 1.
    assert ordinary(far, line, values, one, neighborhood, 2, max_radius=1)[0][0] == pytest.approx(
        ordinary(far, line, values, one, neighborhood, 2)[0][0]
    )
    assert np.isnan(ordinary([[1, 0, 0]], line, values, one, neighborhood, -1)[0][0])
    assert ordinary([[0.9, 0, 0]], line, values, one, neighborhood, -1)[0] == [1.0]


def test_the_later_of_coincident_data_has_no_weight(campaign):
    covs = covariances(STRUCTURES)
    rng = np.random.default_rng(8)
    twice = np.repeat(campaign.locations[:60], 2, axis=0)
    values = rng.normal(size=120)
    neighborhood = talvorix.Neighborhood(twice)
    targets = rng.uniform(0, 100, (40, 3)) + campaign.locations.min(axis=0)
    model = Model(*STRUCTURES)
    for mean in (None, 0.5):
        if mean is None:
            run = (targets, twice, values, covs, neighborhood, 21)
            estimates, variances = talvorix.compute_ordinary_kriging(*run)
        else:
            run = (targets, twice, values, covs, mean, neighborhood, 21)
            estimates, variances = talvorix.compute_simple_kriging(*run)
        for target, estimate, variance in zip(targets, estimates, variances, strict=True):
            first = {}
            for i in neighborhood.find_neighbors(target, 21):
                first.setdefault(i // 2, i)
            used = list(first.values())
            expected = krige(model, twice[used], values[used], target, mean)
            assert (estimate, variance) == pytest.approx(expected, abs=1e-8)
    pair = talvorix.Neighborhood(np.ones((2, 3)))
    half = [talvorix.Covariance.exponential(1.0, talvorix.Ellipsoid(3, 3, 3, 0, 0, 0))]
    target = [2, 1, 1]
    estimates, variances = talvorix.compute_simple_kriging(
        [target], np.ones((2, 3)), [4.0, 4.0], half, 0.0, pair, 2
    )
    assert estimates == [pytest.approx(4 * np.exp(-1))]
    assert variances == [pytest.approx(1 - np.exp(-2))]


def literal_idw(distances, values, power, max_weight, distance_of=None):
    """The weighted mean of data apart from the target, and the share of those on it."""
    on = distances < 1e-30
    x = (distances if distance_of is None else distance_of)[~on]
    apart = np.sum(values[~on] / x**power) / np.sum(1 / x**power) if (~on).any() else None
    if not on.any():
        return apart
    here = values[on].mean()
    return here if apart is None else (1 - max_weight) * apart + max_weight * here


@pytest.mark.parametrize("limits", LIMITS[:1] + LIMITS[3:], ids=str)
@pytest.mark.parametrize("power", [1, 2, 3, 2.6, 2 + 5e-7])
def test_idw_against_the_formula(campaign, limits, power):
    arguments = limits | {"dhids": campaign.holes, "max_weight": 0.7}
    structures = [("spherical", 0.6, (90, 80, 70, 0, 0, 0)), ("nugget", 0.4, None)]
    model = Model(*structures)
    plain = talvorix.IDW(power, **arguments)(*campaign.input())
    by_model = talvorix.IDW(covariances(structures), power, **arguments)(*campaign.input(), 1)
    for i, target in enumerate(campaign.targets):
        near = campaign.neighbors(target, limits)
        if len(near) < 2:
            expected = [campaign.values[near[0]] if near else np.nan] * 2
        else:
            lags, values = campaign.locations[near] - target, campaign.values[near]
            distances = np.linalg.norm(lags, axis=1)
            # Only with a model does a power within a millionth of 2 count as 2.
            snapped = round(power) if abs(power - round(power)) < 1e-6 else power
            expected = [
                literal_idw(distances, values, power, 0.7),
                literal_idw(distances, values, snapped, 0.7, 1 - model(lags)),
            ]
        np.testing.assert_allclose([plain[i], by_model[i]], expected, rtol=1e-9)


def test_idw_with_data_on_the_target():
    points = np.array([[0.0, 0, 0], [0, 0, 0], [3, 0, 0]])
    neighborhood = talvorix.Neighborhood(points)
    target, values = [[0.0, 0, 0]], [1.0, 3.0, 10.0]
    for estimator in (talvorix.IDW(max_neighbors=3), talvorix.IDW([], max_neighbors=3)):
        assert estimator(target, neighborhood, points, values) == [pytest.approx(0.9 * 2 + 1.0)]
    assert talvorix.IDW(max_neighbors=2)(target, neighborhood, points, values) == [2.0]
    # Without a share for them, data on the target are no data.
    on_top = talvorix.IDW(max_weight=0.0, max_neighbors=2)
    assert np.isnan(on_top(target, neighborhood, points, values)[0])
    # A covariance of 1 is a distance of 0: the weight is infinite and the mean undefined.
    flat = [talvorix.Covariance.spherical(1.0, talvorix.Ellipsoid(1e300, 1e300, 1e300, 0, 0, 0))]
    at = talvorix.IDW(flat, max_neighbors=3)([[9.0, 0, 0]], neighborhood, points, values)
    assert np.isnan(at[0])


def test_odd_numbers_flow_through(campaign):
    covs = covariances(STRUCTURES)
    values = campaign.values.copy()
    values[7] = np.nan
    run = (campaign.targets, campaign.locations, values, covs, campaign.neighborhood, 12)
    estimates, variances = talvorix.compute_ordinary_kriging(*run)
    uses_it = [7 in campaign.neighborhood.find_neighbors(t, 12) for t in campaign.targets]
    assert any(uses_it)
    np.testing.assert_array_equal(np.isnan(estimates), uses_it)
    assert np.isfinite(variances).all()
    wild = [talvorix.Covariance.nugget(np.nan), *covs]
    assert np.isnan(talvorix.compute_ordinary_kriging(*run[:3], wild, *run[4:])[0]).all()


def test_lists_that_disagree_are_refused(campaign):
    covs = covariances(STRUCTURES)
    targets, neighborhood, locations, values = campaign.input()

    def call(locations=locations, values=values, neighborhood=neighborhood, **limits):
        limits = {"max_neighbors": 5} | limits
        talvorix.compute_ordinary_kriging(targets, locations, values, covs, neighborhood, **limits)
        talvorix.IDW(**limits)(targets, neighborhood, locations, values)

    call()
    with pytest.raises(ValueError, match="data has 399 entries but data_locs has 400"):
        call(values=values[1:])
    with pytest.raises(ValueError, match="data_locs has 399 entries but neighborhood has 400"):
        call(locations=locations[1:], values=values[1:])
    with pytest.raises(ValueError, match="dhids has 3 entries but data_locs has 400"):
        call(dhids=[1, 2, 3], max_neis_by_dhid=1)
    empty = talvorix.Neighborhood([])
    assert np.isnan(talvorix.IDW(max_neighbors=5)(targets, empty, [], [])).all()
    for name in ("Estimator", "Kernel"):
        with pytest.raises(TypeError, match="No constructor"):
            getattr(talvorix, name)()
    for bad in ({"max_neighbors": 2.5}, {"dhids": [1.5] * 400}, {"dhids": [2**40] * 400}):
        with pytest.raises(TypeError, match="incompatible function arguments"):
            call(**bad)
    with pytest.raises(TypeError):
        call(values=["a"] * 400)
