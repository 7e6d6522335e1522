"""Grids, block models and boxes, against their corners worked out by hand and against numpy."""

import itertools

import numpy as np
import pytest
import talvorix
from literal import anisotropy_matrix

pytestmark = pytest.mark.quick


def flat(location):
    assert location.shape == (3, 1)
    return location.ravel().tolist()


def test_the_last_cell_stands_one_short_of_the_length():
    grid = talvorix.CartesianGrid(length=(10, 10, 10), number_of_cells=(10, 10, 10))
    assert len(grid) == len(grid.locations()) == 1000
    assert flat(grid(1, 0, 0)) == pytest.approx([1, 0, 0])
    assert flat(grid(1)) == pytest.approx([0, 0, 1])
    assert flat(grid.locations()[-1]) == pytest.approx([9, 9, 9])


def test_a_turned_grid_by_hand():
    # Azimuth 0 puts the first axis on +y and the second, a quarter turn to its left, on -x.
    grid = talvorix.CartesianGrid((4, 6, 8), (2, 3, 4), (100, 200, 300), (0, 0, 0))
    assert flat(grid(1, 0, 0)) == pytest.approx([100, 202, 300])
    assert flat(grid(0, 1, 0)) == pytest.approx([98, 200, 300])
    assert flat(grid.cell_size()) == pytest.approx([-2, 2, 2])
    expected = [
        (100 - y, 200 + x, 300 + z) for x, y, z in itertools.product((0, 4), (0, 6), (0, 8))
    ]
    assert sorted(map(flat, grid.corners())) == [pytest.approx(c) for c in sorted(expected)]
    box = grid.bounding_box()
    assert flat(box.lower()) == pytest.approx([94, 200, 300])
    assert flat(box.upper()) == pytest.approx([100, 204, 308])
    # Dip 90 raises the first axis to +z.
    upright = talvorix.CartesianGrid((4, 6, 8), (2, 3, 4), rotation=(90, 90, 0))
    assert flat(upright(1, 0, 0)) == pytest.approx([0, 0, 2])


def test_locations_and_indices_of_any_rotation():
    counts, length, origin, rotation = (3, 4, 5), (30, 60, 7), (1e6, -5, 2), (37, -12, 71)
    grid = talvorix.CartesianGrid(length, counts, origin, rotation)
    axes = np.linalg.inv(anisotropy_matrix(*length, *rotation))
    cells = list(itertools.product(*map(range, counts)))
    expected = np.array(cells) / counts @ axes.T + origin
    np.testing.assert_allclose(np.squeeze(grid.locations()), expected, rtol=0, atol=1e-9)
    np.testing.assert_array_equal(np.asarray(grid), np.squeeze(grid.locations()))
    for i, cell in enumerate(cells):
        assert grid.index(*cell) == i and grid.ijk(i) == cell
        assert flat(grid(i)) == flat(grid(*cell)) == flat(grid.locations()[i])
    beyond = axes @ [5, -0.25, 0.2] + origin
    np.testing.assert_allclose(grid(15, -1, 1).ravel(), beyond, atol=1e-9)
    np.testing.assert_allclose(
        grid.transformation().matrix(), anisotropy_matrix(*length, *rotation), atol=1e-12
    )
    # A grid stands wherever locations are asked for.
    everywhere = talvorix.Neighborhood(grid)
    assert everywhere.nearest_neighbor(grid(2, 1, 3)) == grid.index(2, 1, 3)
    assert np.asarray(grid, dtype=np.float32).dtype == np.float32


def test_which_constructor_the_arguments_choose():
    make = talvorix.CartesianGrid
    assert make((10, 10, 10), (3, 3, 3)).number_of_cells() == (3, 3, 3)
    by_size = make((10, 10, 9), (3.0, 4.0, 2.5))
    assert by_size.number_of_cells() == (3, 2, 3)
    # The remainder widens the spacing.
    assert flat(by_size.cell_size()) == pytest.approx([10 / 3, 5, 3])
    assert make((10, 10, 10), cell_size=(2, 2, 2)).number_of_cells() == (5, 5, 5)
    assert make((10, 10, 10), np.array([2, 5, 1])).number_of_cells() == (2, 5, 1)
    grid = make(number_of_cells=(2, 3, 4), cell_size=(1, 2, 3), origin=(5, 5, 5))
    assert flat(grid.corners()[-1]) == pytest.approx([7, 11, 17])


def test_empty_and_impossible_grids():
    empty = talvorix.CartesianGrid((10, 10, 10), (0, 10, 10))
    assert len(empty) == 0 and empty.locations() == [] and np.asarray(empty).shape == (0, 3)
    assert flat(empty.cell_size()) == [np.inf, 1, 1]
    assert empty.ijk(123) == (1, 2, 3)
    for counts in ((5, 0, 5), (5, 5, 0), (0, 0, 0)):
        grid = talvorix.CartesianGrid((10, 10, 10), counts)
        assert np.isinf(grid.cell_size()).any()
        for call in (grid, grid.ijk):
            with pytest.raises(IndexError, match="no cells along"):
                call(0)
    with pytest.raises(ValueError, match="-1 along the second axis"):
        talvorix.CartesianGrid((10, 10, 10), (1, -1, 1))
    with pytest.raises(ValueError, match="-5 cells along the third axis"):
        talvorix.CartesianGrid((10, 10, 10), (1.0, 1.0, -2.0))
    with pytest.raises(ValueError, match="more cells than can be numbered"):
        talvorix.CartesianGrid((1, 1, 1), (2**40, 2**40, 2**40))


def test_block_model_numbers_its_active_cells():
    grid = talvorix.CartesianGrid((4, 6, 8), (2, 3, 4), (1, 2, 3), (10, 20, 30))
    mask = np.random.default_rng(3).random(24) < 0.4
    for given in (mask, mask.tolist(), list(mask), mask.astype(np.int8)):
        blocks = talvorix.BlockModel(grid, given)
        assert (len(blocks), blocks.full_size()) == (mask.sum(), 24)
        np.testing.assert_array_equal(np.asarray(blocks), np.asarray(grid)[mask])
    np.testing.assert_array_equal(np.squeeze(blocks.locations()), np.asarray(grid)[mask])
    assert blocks.number_of_cells() == blocks.base_grid().number_of_cells() == (2, 3, 4)
    assert flat(blocks.cell_size()) == flat(grid.cell_size())
    assert flat(blocks.bounding_box().upper()) == flat(grid.bounding_box().upper())
    for position, index in enumerate(np.flatnonzero(mask)):
        assert blocks.ijk(position) == grid.ijk(index)
        assert flat(blocks(position)) == flat(blocks(*grid.ijk(index))) == flat(grid(index))
    for index in np.flatnonzero(~mask):
        with pytest.raises(IndexError, match=r"^invalid index$"):
            blocks(*grid.ijk(index))
    for outside in ((2, 0, 0), (-1, 0, 0), (2**61, 0, 0)):
        with pytest.raises(IndexError, match=r"^invalid index$"):
            blocks(*outside)
    for call in (blocks, blocks.ijk):
        for position in (-1, len(blocks)):
            with pytest.raises(IndexError, match=f"{position} is none of the"):
                call(position)
    with pytest.raises(ValueError, match="mask has 23 entries but base_grid has 24"):
        talvorix.BlockModel(grid, mask[1:])
    for wrong in ([0.5] * 24, np.full(24, 0.5), "1" * 24, mask.reshape(4, 6)):
        with pytest.raises(TypeError):
            talvorix.BlockModel(grid, wrong)


def test_bounding_box():
    points = np.random.default_rng(4).normal(size=(50, 3))
    box = talvorix.BoundingBox(points)
    assert (
        flat(box.lower()) == points.min(0).tolist() and flat(box.upper()) == points.max(0).tolist()
    )
    np.testing.assert_array_equal(np.squeeze(box.corners()), points)
    one = talvorix.BoundingBox([(1, 2, 3)])
    assert flat(one.lower()) == flat(one.upper()) == [1, 2, 3]
    none = talvorix.BoundingBox([])
    assert flat(none.lower()) == [1e30] * 3 and flat(none.upper()) == [-1e30] * 3
    partly = talvorix.BoundingBox([(np.nan, 1, 2)])
    assert flat(partly.lower()) == [1e30, 1, 2]
