"""Ensembles of local models and of ellipsoids against their definitions written out."""

import itertools

import numpy as np
import pytest
import talvorix
from literal import Model, anisotropy_matrix, krige
from test_estimation import LIMITS, SEARCH, Campaign, covariances

pytestmark = pytest.mark.quick


class LocalModels:
    """Eighteen models over a campaign: one centred at a target, one without error."""

    def __init__(self, campaign):
        rng = np.random.default_rng(3)
        self.centers = rng.uniform(-10, 110, (18, 3)) + campaign.locations.min(axis=0)
        self.centers[7] = campaign.targets[9]
        self.errors = rng.uniform(0.3, 2, 18)
        self.errors[11] = 0.0
        kinds = rng.choice(["spherical", "exponential", "gaussian"], (18, 2))
        self.structures = [
            [("nugget", 0.2, None)][: i % 2]
            + [(kind, 0.5, (*rng.uniform(15, 90, 3), *rng.uniform(0, 90, 3))) for kind in pair]
            for i, pair in enumerate(kinds)
        ]

    def given(self, rows=range(18)):
        models = [covariances(self.structures[i]) for i in rows]
        return talvorix.LocalCovariances(self.centers[rows], models, self.errors[rows])

    def nearest(self, target, count):
        lags = (self.centers - target) @ anisotropy_matrix(*SEARCH).T
        return np.argsort(np.linalg.norm(lags, axis=1))[: count if count > 0 else None]

    def estimate(self, target, locations, values, count, power, max_weight, mean):
        apart, on_the_spot = np.zeros(2), np.zeros(2)
        for c in self.nearest(target, count):
            e, _ = krige(Model(*self.structures[c]), locations, values, target, mean)
            q = np.linalg.norm(self.centers[c] - target) * self.errors[c]
            if q <= 1e-20:
                on_the_spot += [max_weight * e, max_weight]
            else:
                apart += [(1 / q) ** power * e, (1 / q) ** power]
        if apart[1] <= 1e-10:
            return on_the_spot[0] / on_the_spot[1] if on_the_spot[1] > 1e-10 else np.nan
        e = apart[0] / apart[1]
        if on_the_spot[1] > 1e-10:
            e = e * (1 - max_weight) + on_the_spot[0] / on_the_spot[1] * max_weight
        return e


@pytest.fixture(scope="module")
def campaign():
    small = Campaign()
    small.targets = small.targets[:40]
    return small


@pytest.fixture(scope="module")
def models(campaign):
    return LocalModels(campaign)


def positional(limits, *ensemble):
    neighbors, radius = limits["max_neighbors"], limits.get("max_radius", -1)
    count, power, max_weight = ensemble
    return neighbors, radius, count, limits.get("max_neighbors_octant", -1), power, max_weight


@pytest.mark.parametrize("limits", [*LIMITS, {"max_neighbors": 1}], ids=str)
@pytest.mark.parametrize(
    ("count", "power", "max_weight", "mean", "normal"),
    [(5, 2, 0.9, None, True), (0, 2.6, 0.7, 0.3, True), (1, 3 + 5e-7, 0.9, 1.2, False)],
)
def test_estimates_against_full_systems(
    campaign, models, limits, count, power, max_weight, mean, normal
):
    local, search = models.given(), talvorix.Ellipsoid(*SEARCH)
    arguments = positional(limits, count, power, max_weight)
    options = {
        "run_normalization": normal,
        "use_sk": mean is not None,
        "sk_mean": 0.3 if mean is None else mean,
        "dhids": campaign.holes,
        "max_neis_by_dhid": limits.get("max_neis_by_dhid", -1),
    }
    given = (campaign.locations, campaign.values, local, search, *arguments)
    estimates = talvorix.ensemble_estimation(campaign.targets, *given, n_threads=1, **options)
    shift, scale = (campaign.values.mean(), campaign.values.std()) if normal else (0.0, 1.0)
    values = (campaign.values - shift) / scale
    expected = []
    for target in campaign.targets:
        near = campaign.neighbors(target, limits)
        if not near:
            expected.append(np.nan)
            continue
        places = campaign.locations[near]
        snapped = round(power) if abs(power - round(power)) < 1e-6 else power
        e = models.estimate(target, places, values[near], count, snapped, max_weight, mean)
        expected.append(e * scale + shift)
    assert np.isfinite(expected).sum() > 20
    np.testing.assert_allclose(estimates, expected, rtol=0, atol=1e-7)
    # The calling form, a given neighborhood, threads and the order of targets change no bit.
    estimator = talvorix.EnsembleEstimation(local, search, *arguments, **options)
    np.testing.assert_array_equal(estimator(*campaign.input(), n_threads=2), estimates)
    twice = np.tile(campaign.targets[::-1], (2, 1))
    nei = campaign.neighborhood
    again = talvorix.ensemble_estimation(twice, *given, data_nei=nei, n_threads=2, **options)
    np.testing.assert_array_equal(again, np.tile(estimates[::-1], 2))


@pytest.mark.parametrize("size", [12, 400])
def test_targets_that_share_data_are_each_estimated_alone(campaign, models, size):
    # With all 400 data, fewer systems are kept than there are models.
    steps = np.arange(20 if size == 400 else 300)[:, None] * [1e-5, 0, 0]
    targets = np.concatenate([campaign.targets[0] + steps, campaign.targets[20:30]])
    given = (campaign.locations, campaign.values, models.given(), talvorix.Ellipsoid(*SEARCH))
    arguments = (*given, size, -1, 0, -1, 2, 0.9)
    many = talvorix.ensemble_estimation(targets, *arguments)
    for i in [0, 1, 2, len(targets) // 2, len(targets) - 11, len(targets) - 3]:
        assert talvorix.ensemble_estimation(targets[i : i + 1], *arguments) == [many[i]]


@pytest.mark.parametrize("mean", [None, 1.1])
def test_one_local_model_is_plain_kriging_also_of_coincident_data(campaign, models, mean):
    locations, values = np.repeat(campaign.locations, 2, axis=0), np.tile(campaign.values, 2)
    covs, nei = covariances(models.structures[4]), talvorix.Neighborhood(locations)
    if mean is None:
        estimator = talvorix.OrdinaryKriging(covs, 15)
    else:
        estimator = talvorix.SimpleKriging(covs, mean, 15)
    plain = estimator(campaign.targets, nei, locations, values)
    sphere = talvorix.Ellipsoid(1, 1, 1, 0, 0, 0)
    one = talvorix.EnsembleEstimation(
        *(models.given([4]), sphere, 15, -1, 3, -1, 1, 0.9, False, mean is not None, mean or 0)
    )
    ensemble = one(campaign.targets, nei, locations, values)
    np.testing.assert_allclose(ensemble, plain, rtol=0, atol=1e-7)


def test_where_nothing_can_be_estimated(campaign, models):
    def run(data=campaign.values, errors=models.errors, targets=campaign.targets[:5], **options):
        n = len(errors)
        local = talvorix.LocalCovariances(
            models.centers[:n], models.given().covariances[:n], errors
        )
        nearest = (8, -1, 4, -1, 2, options.pop("max_weight", 0.9))
        given = (targets, campaign.locations, data, local, talvorix.Ellipsoid(*SEARCH))
        return talvorix.ensemble_estimation(*given, *nearest, **options)

    flat = np.full(400, 3.0)
    for estimates in (run(), run(flat, run_normalization=False), run(errors=[0] * 18)):
        assert np.isfinite(estimates).all()
    nowhere, lost = [[np.nan, 0, 0]], [np.nan] * 18
    for estimates in (run(flat), run(targets=nowhere), run(errors=lost), run(errors=[])):
        assert np.isnan(estimates).all()
    assert np.isnan(run(errors=[0] * 18, max_weight=0.0)).all() and run(targets=[]) == []


def literal_blend(w, matrices):
    """Blend matrices whose rows are axes over their ranges."""

    def align(to, matrix):
        best, least = None, 1e30
        for order in itertools.permutations(range(3)):
            for signs in itertools.product([1, -1], repeat=3):
                candidate = np.array(signs)[:, None] * matrix[list(order)]
                if np.linalg.norm(candidate - to) < least:
                    best, least = candidate, np.linalg.norm(candidate - to)
        return least, best

    rows = [m / (m**2).sum(axis=1)[:, None] for m in matrices]
    rows = [r * (1 + 1e-6 / np.linalg.norm(r, axis=1))[:, None] for r in rows]
    rows = [rows[i] for _, i in sorted((-weight, i) for i, weight in enumerate(w))]
    total, blend, unused = w[0], rows[0], list(range(1, len(w)))
    while unused:
        aligned = {j: align(blend, rows[j]) for j in unused}
        j = min(unused, key=lambda j: aligned[j][0])
        blend = (w[j] * aligned[j][1] + total * blend) / (total + w[j])
        total += w[j]
        unused.remove(j)
    return talvorix.sort_matrix3d(blend / (blend**2).sum(axis=1)[:, None], True)


@pytest.mark.parametrize("n", [1, 2, 3, 12])
def test_blended_ellipsoids_against_the_definition(n):
    rng = np.random.default_rng(n)
    for spread in (5.0, 60.0, 180.0):
        # Weights in no order, some alike: the weights of places and of ellipsoids differ.
        w = rng.integers(1, 6, n) / 4
        ranges = np.exp(rng.normal([3, 2, 1], 0.3, (n, 3)))
        angles = rng.uniform(-spread, spread, (n, 3)) / [1, 2, 2]
        shapes = np.hstack([ranges, angles])
        expected = literal_blend(w, [anisotropy_matrix(*shape) for shape in shapes])
        blend = talvorix.ensemble_model(w, *shapes.T)
        np.testing.assert_allclose(blend.matrix(), expected, rtol=1e-8, atol=1e-12)
        ellipsoids = [talvorix.Ellipsoid(*shape) for shape in shapes]
        blend = talvorix.ensemble_ellipsoid(w, ellipsoids)
        by_length = [talvorix.sort_matrix3d(e.matrix(), True) for e in ellipsoids]
        sorted_shapes = [talvorix.extract_ellipsoid_info(m) for m in by_length]
        names = ("r1", "r2", "r3", "azimuth", "dip", "rake")
        table = [[getattr(s, name)() for s in sorted_shapes] for name in names]
        same = talvorix.ensemble_model(w, *table)
        np.testing.assert_array_equal(blend.matrix(), same.matrix())


def test_blends_do_not_depend_on_the_names_of_axes():
    ellipsoid = talvorix.Ellipsoid(9, 5, 2, 40, 25, -60)
    matrix = np.array(ellipsoid.matrix())
    turned = [talvorix.Ellipsoid(matrix[list(p)]) for p in itertools.permutations(range(3))]
    blend = talvorix.ensemble_ellipsoid([0.5, 3, 1, 1, 2, 0.1], turned)
    np.testing.assert_allclose(blend.matrix(), matrix, rtol=1e-5, atol=1e-7)
    # Ranges, not their inverses, are averaged.
    spheres = [talvorix.Ellipsoid(r, r, r, 0, 0, 0) for r in (4, 1)]
    assert talvorix.ensemble_ellipsoid([3, 1], spheres).info().r1() == pytest.approx(3.25)


def test_local_ellipsoids_against_the_definition():
    rng = np.random.default_rng(8)
    places, targets = rng.uniform(0, 10, (60, 3)), rng.uniform(0, 10, (90, 3))
    targets[3], targets[4] = places[7], [1e3, 0, 0]
    shapes = np.column_stack([rng.uniform(1, 30, (60, 3)), rng.uniform(-90, 90, (60, 3))])
    ellipsoids, weights = [talvorix.Ellipsoid(*s) for s in shapes], rng.uniform(0, 2, 60)
    # As their ranges and angles are read, which not every frame survives.
    matrices = [talvorix.Ellipsoid(e.info()).matrix() for e in ellipsoids]
    given = (targets, places, ellipsoids, weights)
    blends = talvorix.ensemble_local_ellipsoids(*given, -1, 3.0, -1, eps=0.05)
    sizes = []
    for target, blend in zip(targets, blends, strict=True):
        d = np.linalg.norm(places - target, axis=1)
        near = [i for i in np.argsort(d) if d[i] < 3]
        w = weights[near] / (d[near] ** 3 + 0.05)
        sizes.append(len(near))
        expected = talvorix.Ellipsoid(1, 1, 1, 0, 0, 0).matrix()
        if near:
            expected = literal_blend(w / w.sum(), [matrices[i] for i in near])
        np.testing.assert_allclose(blend.matrix(), expected, rtol=1e-7, atol=1e-10)
    assert 0 in sizes and max(sizes) > 8
    holes = np.arange(60) // 20
    one = talvorix.ensemble_local_ellipsoids(*given, 9, 0, 1, dhids=holes, max_neis_by_dhid=1)
    alone = talvorix.ensemble_local_ellipsoids(*given, 9, 0, 1, 0.01, 1, holes, 1)
    assert all(np.array_equal(a.matrix(), b.matrix()) for a, b in zip(one, alone, strict=True))


def test_lists_that_disagree_or_are_empty_are_refused(campaign, models):
    local, e, place = models.given(), talvorix.Ellipsoid(1, 1, 1, 0, 0, 0), np.zeros((1, 3))
    with pytest.raises(AttributeError):
        local.errors = []
    assert local.errors == list(models.errors) and len(local.covariances[1]) == 3
    np.testing.assert_array_equal(np.squeeze(local.centers), models.centers)
    run, made = talvorix.ensemble_estimation, talvorix.LocalCovariances
    blend, around = talvorix.ensemble_ellipsoid, talvorix.ensemble_local_ellipsoids
    given = ([], campaign.locations, campaign.values, local, e, 5, 1, 1, 1, 2, 0.9)
    for call, text in [
        (lambda: made(place, [[], []], [1]), "covariances has 2 entries but centers has 1"),
        (lambda: made(place, [[]], [1, 2]), "errors has 2 entries but centers has 1"),
        (lambda: run(*given, data_nei=talvorix.Neighborhood([])), "but neighborhood has 0"),
        (lambda: run(*given, dhids=[1]), "dhids has 1 entries but data_locs has 400"),
        (lambda: talvorix.ensemble_model(*[[]] * 7), "w is empty"),
        (lambda: talvorix.ensemble_model(*[[1]] * 6, [1, 2]), "rake has 2 entries but w has 1"),
        (lambda: blend([], []), "w is empty"),
        (lambda: blend([1, 2], [e]), "ellipsoids has 1 entries but w has 2"),
        (
            lambda: around([], place, [], [1], 1, 1, 1),
            "ellipsoids has 0 entries but ellipsoid_locs",
        ),
        (lambda: around([], place, [e], [], 1, 1, 1), "ellipsoid_weights has 0 entries"),
        (lambda: around([], place, [e], [1], 1, 1, 1, dhids=[1, 2]), "dhids has 2 entries"),
    ]:
        with pytest.raises(ValueError, match=text):
            call()
