#!/usr/bin/env python3
"""Reference draws for random_test.cpp, computed apart from the library.

Integers are exact Python integers reduced to 32 bits by hand; every float
step is rounded to single precision through struct, the way the generators
round each operation. Prints the values as C++ hexadecimal float literals.
"""
import math
import re
import struct

MODULUS = 1000000000
SEED_CONSTANT = 161803398


def f32(x):
    return struct.unpack("<f", struct.pack("<f", x))[0]


def s32(x):
    x &= 0xFFFFFFFF
    return x - (1 << 32) if x & 0x80000000 else x


SCALE = f32(1e-9)
FACTOR = f32(-2.885390043)
assert struct.pack(">f", SCALE).hex() == "3089705f"
assert struct.pack(">f", FACTOR).hex() == "c038aa3b"


class Uniform:
    def __init__(self, seed):
        s = s32(seed)
        assert s != 0, "seed 0 reads the clock"
        if s > 0:
            s = -s
        self.seed = s
        mj = abs(s32(SEED_CONSTANT - s32(abs(s)))) % MODULUS
        t = [0] * 56
        t[55] = mj
        mk = 1
        for i in range(1, 55):
            ii = (21 * i) % 55
            t[ii] = mk
            mk = mj - mk
            if mk < 0:
                mk += MODULUS
            mj = t[ii]
        for _ in range(4):
            for i in range(1, 56):
                t[i] -= t[1 + (i + 30) % 55]
                if t[i] < 0:
                    t[i] += MODULUS
        self.t, self.next, self.second = t, 0, 31

    def draw(self):
        self.next = 1 if self.next + 1 == 56 else self.next + 1
        self.second = 1 if self.second + 1 == 56 else self.second + 1
        mj = self.t[self.next] - self.t[self.second]
        if mj < 0:
            mj += MODULUS
        self.t[self.next] = mj
        return f32(f32(mj) * SCALE)


class Normal:
    def __init__(self, mean, variance, seed):
        self.u = Uniform(seed)
        self.mean, self.dev = f32(mean), f32(math.sqrt(variance))
        self.spare = None

    def draw(self, mean=None, variance=None):
        if self.spare is not None:
            spare, self.spare = self.spare, None
            return spare
        mean = self.mean if mean is None else f32(mean)
        dev = self.dev if variance is None else f32(math.sqrt(variance))
        while True:
            x1 = f32(f32(self.u.draw() * 2) - 1)
            x2 = f32(f32(self.u.draw() * 2) - 1)
            r = f32(f32(x1 * x1) + f32(x2 * x2))
            if r < 1 and r != 0:
                break
        f = f32(math.sqrt(math.log(r) / r * FACTOR))
        g = f32(f * dev)
        self.spare = f32(f32(x1 * g) + mean)
        return f32(f32(x2 * g) + mean)


def literal(v):
    return re.sub(r"\.?0*p", "p", float.hex(v)) + "f"


def show(name, values):
    print(name, ", ".join(literal(v) for v in values))


def uniform_draws(seed, picks):
    u = Uniform(seed)
    drawn = [u.draw() for _ in range(max(picks))]
    return [drawn[p - 1] for p in picks]


PICKS = [1, 2, 3, 4, 5, 24, 25, 55, 56, 1000]
show("uniform seed 5, draws %s:" % PICKS, uniform_draws(5, PICKS))
show("uniform seed -2147483648:", uniform_draws(-(1 << 31), [1, 2, 3]))
show("uniform seed -7:", uniform_draws(-7, [1, 2, 3]))
n = Normal(0, 1, 5)
show("normal (0, 1) seed 5:", [n.draw() for _ in range(4)])
n = Normal(10, 4, 5)
show("normal (10, 4) seed 5:", [n.draw() for _ in range(2)])
n = Normal(0, 1, 5)
show("normal seed 5, calls (0,1) (100,4) (100,4) (0,1):",
     [n.draw(0, 1), n.draw(100, 4), n.draw(100, 4), n.draw(0, 1)])
