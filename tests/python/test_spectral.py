"""Spectra of series against numpy's transforms, and lines against loops over all samples."""

import math

import numpy as np
import pytest
from talvorix import fft

pytestmark = pytest.mark.quick


@pytest.mark.parametrize("n", [1, 2, 3, 8, 9, 31, 100, 1001])
def test_against_numpy(n):
    series = np.random.default_rng(n).normal(3, 1, n)
    expected = np.fft.fft(series)
    spectrum = fft.SpectralData1D.forward(series)
    assert len(spectrum) == n and repr(n) in repr(spectrum)
    real, imag = spectrum.cartesian()
    magnitude, phase = spectrum.polar()
    for parts in (np.array(real) + 1j * np.array(imag), magnitude * np.exp(1j * np.array(phase))):
        np.testing.assert_allclose(parts, expected, atol=1e-10 * n)
    assert spectrum.real == real and spectrum.imag == imag
    assert spectrum.magnitude == magnitude and spectrum.phase == phase
    for plain, shifted in zip(
        (magnitude, phase, real, imag),
        (*spectrum.polar(shift=True), *spectrum.cartesian(True)),
        strict=True,
    ):
        assert shifted == np.fft.fftshift(plain).tolist()
    np.testing.assert_allclose(spectrum.backward(), series, atol=1e-12)
    # The upper half has no effect: it mirrors the lower one.
    upper = np.arange(n) > n // 2
    edited = fft.SpectralData1D(np.where(upper, 7.0, magnitude), np.where(upper, 1.0, phase))
    np.testing.assert_allclose(edited.backward(), series, atol=1e-12)
    kept = np.random.default_rng(n + 1).integers(0, n, 3)
    masked = np.where(np.isin(np.arange(n), [*kept, *(-kept % n)]), expected, 0)
    low = spectrum.filter_frequencies(kept)
    np.testing.assert_allclose(low.backward(), np.fft.ifft(masked).real, atol=1e-12)
    np.testing.assert_allclose(np.array(low.real) + 1j * np.array(low.imag), masked, atol=1e-9)
    np.testing.assert_allclose(low.magnitude * np.exp(1j * np.array(low.phase)), masked, atol=1e-9)


def literal_smoothing(magnitude, w):
    n = len(magnitude)
    ends = [(max(i - w, 0), min(i + w, n - 1)) for i in range(n)]
    s = np.array([math.fsum(magnitude[lo : hi + 1]) / (hi - lo) for lo, hi in ends])
    return s * (sum(magnitude) / sum(s))


def test_smoothing():
    rng = np.random.default_rng(4)
    for n in (2, 3, 10, 47):
        spectrum = fft.SpectralData1D(rng.uniform(0, 9, n), rng.uniform(-3, 3, n))
        for w in (1, 2, 3, 7, n // 2, n - 1, n, n + 5, 2**31 - 1):
            smooth = spectrum.smooth_frequencies(max(w, 1))
            expected = literal_smoothing(spectrum.magnitude, max(w, 1))
            np.testing.assert_allclose(smooth.magnitude, expected, rtol=1e-12)
            np.testing.assert_allclose(smooth.real, expected * np.cos(spectrum.phase), atol=1e-12)
            np.testing.assert_allclose(smooth.imag, expected * np.sin(spectrum.phase), atol=1e-12)
            assert smooth.phase == spectrum.phase
        assert np.isnan(spectrum.smooth_frequencies(0).magnitude).all()
    assert np.isnan(fft.SpectralData1D([2.0], [0.0]).smooth_frequencies(5).magnitude).all()


def test_empty_spectra_and_bad_arguments():
    empty = fft.SpectralData1D.forward([])
    assert len(empty) == 0 and empty.backward() == [] and empty.polar(True) == ([], [])
    assert len(empty.smooth_frequencies(2)) == len(empty.filter_frequencies([])) == 0
    spectrum = fft.SpectralData1D([1.0, 2.0], [0.0, 1.0])
    with pytest.raises(AttributeError):
        spectrum.real = [0.0]
    for bad in (-1, 2):
        with pytest.raises(IndexError, match=rf"frequencies\[1\] is {bad}, but there are 2"):
            spectrum.filter_frequencies([0, bad])
    line = dict(x=[1.0, 2.0], data=[1.0, 2.0], b=0.1, power_a=2.0, n_points=3, window_size=1)
    back = dict(target_x=[1.0], source_x=[1.0], source_data=[1.0], dr=1.0, b=0.1, power_a=2.0)
    for call, arguments, message in (
        (fft.SpectralData1D, ([1.0], []), "phase has 0 entries but magnitude has 1"),
        (spectrum.smooth_frequencies, (-1,), "window_size must be 0 or more"),
        (fft.project_to_line, {**line, "data": [1.0]}, "data has 1 entries but x has 2"),
        (fft.project_to_line, {**line, "x": [], "data": []}, "x is empty"),
        (fft.project_to_line, {**line, "x": [0.0, math.nan]}, r"x\[1\] is not finite"),
        (fft.project_to_line, {**line, "n_points": 0}, "n_points must be from 1"),
        (fft.project_to_line, {**line, "window_size": 0}, "window_size must be from 1"),
        (fft.project_back_to_source, {**back, "source_x": []}, "source_data has 1 entries but"),
        (fft.project_back_to_source, {**back, "source_x": [math.inf]}, r"source_x\[0\] is not"),
        (fft.project_back_to_source, {**back, "target_x": [math.nan]}, r"target_x\[0\] is not"),
    ):
        with pytest.raises(ValueError, match=message):
            call(**arguments) if isinstance(arguments, dict) else call(*arguments)


@pytest.mark.parametrize("power", [1.0, 2.0, 3.0, 1.7])
def test_lines_against_all_samples(power):
    rng = np.random.default_rng(int(10 * power))
    x, data = rng.uniform(-50, 200, 300), rng.normal(size=300)

    def mean(position, chosen, b):
        weights = 1 / (abs(x[chosen] - position) ** power + b)
        return weights @ data[chosen] / weights.sum() if len(chosen) else math.nan

    for n_points, window, b in ((1, 7, 0.2), (2, 1, 0.5), (64, 5, 0.01), (900, 40, 2), (9, 999, 1)):
        line = fft.project_to_line(x, data, b, power, n_points, window)
        positions = np.linspace(x.min(), x.max(), n_points)
        expected = [mean(p, np.argsort(abs(x - p))[:window], b) for p in positions]
        np.testing.assert_allclose(line, expected, rtol=1e-9)
    targets = rng.uniform(-80, 230, 200)
    for dr in (0.3, 5.0, 1e9, -1.0, math.nan):
        found = fft.project_back_to_source(targets, x, data, dr, 0.3, power)
        expected = [mean(t, np.flatnonzero(abs(x - t) <= dr), 0.3) for t in targets]
        np.testing.assert_allclose(found, expected, rtol=1e-9)
    # A value at the very position counts alone when nothing else is within reach.
    assert fft.project_back_to_source([x[0]], x, data, 0.0, 0.3, power) == pytest.approx([data[0]])
    # Where samples are on the line already, one alone gives itself back.
    regular = np.arange(9.0)
    back = fft.project_to_line(regular, data[:9], 0.1, power, 9, 1)
    np.testing.assert_allclose(back, data[:9], rtol=1e-12)
    assert fft.project_to_line([3.0] * 4, [1, 2, 3, 6], 1.0, power, 2, 9) == [3.0, 3.0]
    assert np.isnan(fft.project_back_to_source([1.0], [], [], 9.0, 1.0, power)).all()
