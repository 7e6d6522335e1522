"""What may be given as a location, a list of locations, a list of values, a matrix."""

import array
import contextlib
import decimal
import fractions

import numpy as np
import pytest
import talvorix

pytestmark = pytest.mark.quick

ROTATION = talvorix.Rotation(30, 20, 10)
ROWS = np.random.default_rng(1).integers(-9, 9, (5, 3)).astype(float)


class Offered:
    """An object that offers itself as an array, as a table's column does."""

    def __init__(self, values):
        self.values = values

    def __array__(self, dtype=None, copy=None):
        return np.asarray(self.values, dtype)


def test_one_location_in_all_its_shapes():
    x, y, z = row = ROWS[0]
    expected = ROTATION.forward(row)
    assert expected.shape == (3, 1) and expected.dtype == np.float64
    strided = np.zeros((3, 7))
    strided[:, 2] = row
    for form in (
        row.reshape(3, 1),
        row.reshape(1, 3),
        [x, y, z],
        (int(x), fractions.Fraction(y), decimal.Decimal(z)),
        row.astype(np.int16),
        row.astype(np.float32)[None],
        row.astype(">f8"),
        strided[:, 2],
        strided[:, 2:3],
        np.repeat(row, 2)[::2],
        np.array(list(row), dtype=object),
        array.array("d", row),
        Offered(row),
    ):
        np.testing.assert_array_equal(ROTATION.forward(form), expected)
    with pytest.raises(TypeError):
        talvorix.Neighborhood(ROWS).find_neighbors([[x, y, z]], 1)


def test_a_list_of_locations_in_all_its_forms():
    expected = np.array(ROTATION.forward(ROWS))
    assert expected.shape == (5, 3, 1)
    for form in (
        list(ROWS),
        tuple(ROWS[..., None]),
        [row[None] for row in ROWS],
        ROWS.tolist(),
        [tuple(ROWS[0]), *ROWS[1:, :, None]],
        ROWS[..., None],
        ROWS[:, None, :],
        np.asfortranarray(ROWS),
        np.repeat(ROWS, 2, axis=0)[::2],
        ROWS.astype(np.int32),
        ROWS.astype(np.longdouble),
        Offered(ROWS),
        ROWS.astype(object),
    ):
        np.testing.assert_array_equal(ROTATION.forward(form), expected)
    # Three rows are three locations; one row alone is one location unless it is in a list.
    assert len(ROTATION.forward(ROWS[:3])) == 3
    assert isinstance(ROTATION.forward(ROWS[:1]), np.ndarray)
    for one in ([ROWS[0]], ROWS[:1].tolist(), ROWS[:1, :, None]):
        assert len(ROTATION.forward(one)) == 1 and isinstance(ROTATION.forward(one), list)
    for empty in ([], (), np.empty(0), np.empty((0, 3)), np.empty((0, 3, 1))):
        assert ROTATION.forward(empty) == []


def test_the_given_objects_are_copied():
    rows = ROWS.copy()
    neighborhood = talvorix.Neighborhood(rows)
    rows[:] = 0
    assert neighborhood.find_neighbors(ROWS[2], 1e-9) == [2]
    result = ROTATION.matrix()
    result[:] = 0
    assert np.abs(ROTATION.matrix()).sum() > 1


@pytest.mark.parametrize(
    "bad",
    [
        5,
        None,
        "abc",
        b"abc",
        {1, 2, 3},
        {"x": 1},
        [1, 2],
        [1, 2, 3, 4],
        [1, 2, "3"],
        [1, 2, None],
        [[1, 2, 3], [4, 5]],
        [[1, 2, 3], "abc"],
        [1, 2, 10**400],
        np.zeros((2, 2)),
        np.zeros((4, 4, 3)),
        np.zeros((3, 3, 3)),
        np.zeros(3, complex),
        np.array(["a", "b", "c"]),
        np.array([["1", "2", "3"]]),
        np.array(["2020-01-01"] * 3, "M8[D]"),
        np.array(5.0),
    ],
    ids=repr,
)
def test_what_is_no_location_is_a_type_error(bad):
    with pytest.raises(TypeError, match="incompatible function arguments"):
        ROTATION.forward(bad)


def estimate(data, dhids=()):
    points = np.arange(15.0).reshape(5, 3)
    limits = {"dhids": dhids, "max_neis_by_dhid": 1} if len(dhids) else {}
    estimator = talvorix.IDW(max_neighbors=5, **limits)
    return estimator([[50.0, 0, 0]], talvorix.Neighborhood(points), points, data)[0]


def test_lists_of_numbers_in_all_their_forms():
    data = [1, 2, 4, 8, 16]
    expected = estimate([float(v) for v in data])
    for form in (
        data,
        tuple(data),
        np.array(data),
        np.array(data, np.uint8),
        np.array(data, np.float32),
        np.repeat(data, 3)[::3],
        array.array("i", data),
        Offered(data),
        np.array(data, object),
    ):
        assert estimate(form) == expected
    assert estimate(np.array([True, False, True, False, True])) == estimate([1, 0, 1, 0, 1])
    for bad in (np.eye(5), np.array(data, complex), "12345", [1, 2, 3, 4, "5"], {1, 2, 3, 4, 5}, 3):
        with pytest.raises(TypeError):
            estimate(bad)
    holes = [3, 3, 3, 3, -7]
    thinned = estimate(data, holes)
    assert thinned != expected
    for form in (np.array(holes), np.array(holes, np.int8), tuple(holes), array.array("q", holes)):
        assert estimate(data, form) == thinned
    too_large = (np.array([2**31] * 5), np.array([2**64 - 1] * 5, np.uint64), [-(2**31) - 1] * 5)
    for bad in (*too_large, np.array([1.0] * 5), [1.0] * 5, ["1"] * 5, np.ones((5, 1), int)):
        with pytest.raises(TypeError):
            estimate(data, bad)


def test_matrices():
    matrix = ROTATION.matrix()
    assert matrix.shape == (3, 3)
    for form in (matrix.tolist(), np.asfortranarray(matrix), matrix.astype(object).tolist()):
        np.testing.assert_array_equal(talvorix.Ellipsoid(form).matrix(), matrix)
    for bad in (np.eye(4), np.zeros((3, 3, 1)), np.eye(3) * 1j, [["a"] * 3] * 3, np.zeros(9), None):
        with pytest.raises(TypeError):
            talvorix.Ellipsoid(bad)


def test_sequences_that_change_or_fail_while_they_are_read():
    class Shrinking(float):
        def __float__(self):
            victims.clear()
            return 1.0

    class Failing:
        def __float__(self):
            raise RuntimeError("not today")

    victims = []
    for make in (
        lambda: [np.array([Shrinking(1)] * 3, object), *ROWS],
        lambda: [[Failing(), 1, 2]],
        lambda: [Failing()] * 3,
    ):
        victims[:] = make()
        with contextlib.suppress(TypeError):
            talvorix.Neighborhood(victims)
    numbers = [Failing()] * 5
    with pytest.raises(TypeError):
        estimate(numbers)
