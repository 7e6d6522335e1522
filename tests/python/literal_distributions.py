"""Slow, literal readings of the samplers and of the lookups in a sorted sample."""

import math
from bisect import bisect_left
from itertools import accumulate

from literal import Engine


def nonzero(e):
    while True:
        if u := e.uniform():
            return u


def lognormal(e, m, s):
    e._kept = None
    return math.exp(e.normal() * s + m)


def gamma(e, alpha, beta):
    if alpha < 1:
        while True:
            u1, u2 = e.uniform(), nonzero(e)
            if u1 < math.e / (alpha + math.e):
                x = u2 ** (1 / alpha)
                q = math.exp(-x)
            else:
                x = 1 - math.log(u2)
                q = x ** (alpha - 1)
            if e.uniform() < q:
                return x * beta
    if alpha == 1:
        return -math.log(1 - e.uniform()) * beta
    if alpha >= 20 or alpha != int(alpha):
        while True:
            y = math.tan(math.pi * e.uniform())
            v = math.sqrt(2 * alpha - 1) * y
            x = v + alpha - 1
            if x > 0:
                bound = math.exp((alpha - 1) * math.log(x / (alpha - 1)) - v) * (y * y + 1)
                if not bound < e.uniform():
                    return x * beta
    product = e.uniform()
    for _ in range(int(alpha) - 1):
        product *= nonzero(e)
    return -math.log(product) * beta


def fisher_f(e, m, n):
    a, b = m / 2, n / 2
    while True:
        if a >= 1 or b >= 1:
            x, y = gamma(e, a, 1), gamma(e, b, 1)
            while x + y == 0:
                x, y = gamma(e, a, 1), gamma(e, b, 1)
        else:
            x, y = e.uniform() ** (1 / a), e.uniform() ** (1 / b)
            while not 0 < x + y <= 1:
                x, y = e.uniform() ** (1 / a), e.uniform() ** (1 / b)
        v = x / (x + y)
        if v != 1:
            return (v / (1 - v)) * (b / a)


def student_t(e, n):
    while True:
        x, y = 2 * e.uniform() - 1, 2 * e.uniform() - 1
        s = x * x + y * y
        if 1e-12 < s < 1:
            return math.sqrt((math.sqrt(s) ** (-4 / n) - 1) * n / s) * x


def data(e, values, weights=()):
    n = len(values)
    pairs = sorted(zip(values, weights or [1.0] * n, strict=True))
    z, total = [value for value, _ in pairs], sum(weight for _, weight in pairs)
    cumulative = list(accumulate(weight / total for _, weight in pairs))
    k = bisect_left(cumulative, e.uniform())
    u1, u2 = e.uniform(), e.uniform()
    wa, wb = u1 / (u1 + u2), u2 / (u1 + u2)
    if k >= n:
        return z[-1]
    if k == 0:
        return wb * z[1] + wa * z[0]
    if k == n - 1:
        return wa * z[n - 2] + wb * z[n - 1]
    return ((z[k] + z[k + 1]) * wb + (z[k] + z[k - 1]) * wa) * 0.5


SAMPLERS = {
    "gaussian": lambda e, mean=0.0, std_dev=1.0: e.normal() * std_dev + mean,
    "uniform": lambda e, a, b: a + e.uniform() * (b - a),
    "lognormal": lognormal,
    "gamma": gamma,
    "exponential": lambda e, rate: -math.log(1 - e.uniform()) / rate,
    "weibull": lambda e, a, b: b * (-math.log(1 - e.uniform())) ** (1 / a),
    "extreme_value": lambda e, a, b: a - b * math.log(-math.log(e.uniform())),
    "chi_squared": lambda e, k: gamma(e, k / 2, 2),
    "cauchy": lambda e, a, b: a + b * math.tan(math.pi * (e.uniform() - 0.5)),
    "fisher_f": fisher_f,
    "student_t": student_t,
    "data": data,
}


def simulate_in_threads(kind, parameters, n, seed, n_threads):
    """An engine for each thread, seeded by a main one; blocks of which the first are longer."""
    main, values = Engine(seed), []
    for t in range(n_threads):
        engine = Engine(main.raw())
        for _ in range(n // n_threads + (t < n % n_threads)):
            values.append(SAMPLERS[kind](engine, *parameters))
    return values


def prob(table, value):
    """F: the probability of a value in a sorted sample."""
    n, dp = len(table), 1 / len(table)
    k = sum(entry < value for entry in table) if value == value else 0
    if k == n:
        return 1.0
    base = k * dp
    if 0 < k < n - 1:
        wl = 1 / ((value - table[k - 1]) + 1e-07)
        wr = 1 / ((table[k] - value) + 1e-07)
        return (base - dp) * wl / (wl + wr) + base * wr / (wl + wr)
    return base


def quantile(table, p):
    """Q: the quantile of a probability in a sorted sample."""
    n = len(table)
    if p < 0:
        return table[0]
    x = n * p
    if not x < n - 1:
        return table[n - 1]
    f = x - int(x)
    return f * table[int(x) + 1] + (1 - f) * table[int(x)]
