"""The Python package against the plain model, from several threads, and under calls that cannot be."""

import concurrent.futures
import contextlib
import copy
import ctypes
import io
import os
import re
from pathlib import Path

import cmodel
import numpy as np
import pytest

ROOT = Path(__file__).parents[2]
PLAIN = ctypes.CDLL(os.environ["CMODEL_PLAIN"])
TYPES = [np.dtype(t) for t in "u1 i1 u2 i2 u4 i4".split()]
SEED = int(os.environ.get("CMODEL_TEST_SEED", "1"))


def laid_out(rng, values, dtype):
    """The same samples in a random layout."""
    h, w = values.shape
    a = rng.choice([
        lambda: np.zeros((h, w), dtype),
        lambda: np.zeros((w, h), dtype).T,
        lambda: np.zeros((h, w, 3), dtype)[..., rng.integers(3)],
        lambda: np.zeros((h + 3, w + 5), dtype)[::-1, ::-1][2 : h + 2, 1 : w + 1],
        lambda: np.zeros(h * w * dtype.itemsize + 1, np.uint8)[1:].view(dtype).reshape(h, w),  # at an odd address
    ])()
    a[...] = values
    return a


def draw_plane(rng, h, w, depth):
    """Samples and a layout; now and then samples beyond the depth."""
    beyond = rng.random() < 0.1
    low, high = (-40000, 70000) if beyond else (0, (1 << depth) - 1)
    values = rng.integers(low, high + 1, (h, w)) >> rng.integers(0, 3)
    dtype = rng.choice([t for t in TYPES if np.iinfo(t).max >= high or beyond])
    limits = np.iinfo(dtype)
    return laid_out(rng, np.clip(values, limits.min, limits.max), dtype)


def draw_registers(rng):
    share = rng.choice([0.0, 0.05, 1.0])
    values = {r.key: int(rng.integers(r.least, r.greatest + 1)) for r in cmodel.registers() if rng.random() < share}
    return values | {"reg_ee_enable": int(rng.random() < 0.95), "reg_ee_texture_mode": int(rng.integers(2))}


def draw_case(rng):
    pipeline = str(rng.choice(cmodel.pipelines()))
    h, w = (int(n) for n in rng.integers(3, rng.choice([8, 30]), 2))
    depth = {"y": int(rng.choice([8, 10, 12])), "yfusion": int(rng.choice([8, 12, 20]))}
    planes = {name: draw_plane(rng, h, w, depth.get(name, 8)) for name in ("y", "ynr", "mmap", "yfusion")}
    half = (w + int(rng.integers(2))) // 2
    planes |= {name: draw_plane(rng, h, half, 8) for name in ("cb", "cr")}
    for name in ("ynr", "mmap") if depth["y"] == 8 else ("mmap",):
        if rng.random() < 0.2:
            del planes[name]
    return pipeline, draw_registers(rng), planes, depth


def run_plain(pipeline, registers, planes, depth):
    planes = {"ynr": planes["y"], "mmap": np.zeros(planes["y"].shape)} | planes
    h, w = planes["y"].shape
    flat = [np.ascontiguousarray(planes[n], np.int32) for n in ("y", "cb", "cr", "ynr", "mmap", "yfusion")]
    out = np.zeros((h, w), np.int32)
    keys = (ctypes.c_char_p * len(registers))(*(key.encode() for key in registers))
    values = (ctypes.c_int * len(registers))(*registers.values())
    pointers = (ctypes.c_void_p * 6)(*(a.ctypes.data for a in flat))
    PLAIN.plain_run(pipeline == "classic", len(registers), keys, values, w, h, planes["cb"].shape[1], pointers,
                    depth["y"], depth["yfusion"], ctypes.c_void_p(out.ctypes.data))
    return out


def to_planes(rgb):
    """8-bit colours as luma and half-wide chroma."""
    r, g, b = np.moveaxis(rgb.astype(np.int64), 2, 0)
    tones = [131 * b - 44 * r - 87 * g, 131 * r - 110 * g - 21 * b]
    chroma = [np.clip(128 + np.sign(c) * ((abs(c) + 128) >> 8), 0, 255)[:, ::2] for c in tones]
    return dict(zip(("y", "cb", "cr"), [(77 * r + 150 * g + 29 * b + 128) >> 8, *chroma]))


def test_random_runs_give_the_bits_of_the_plain_model():
    models = {name: cmodel.Model(name) for name in cmodel.pipelines()}
    compared = 0
    for number in range(1000):
        rng = np.random.default_rng([SEED, number])
        pipeline, registers, planes, depth = draw_case(rng)
        m = models[pipeline]
        m.registers.reset()
        m.registers.update(registers)
        given = planes
        if rng.random() < 0.1:
            rgb = rng.integers(0, 256, (*planes["y"].shape, 3), np.uint8)[:, ::-1]
            given = {n: planes[n] for n in planes if n not in ("y", "cb", "cr")} | {"rgb": rgb}
            planes, depth = planes | to_planes(rgb), depth | {"y": 8}
        want = run_plain(pipeline, registers, planes, depth)
        h, w = want.shape
        size = rng.integers(1, (w + 1, h + 1))
        x, y = (int(n) for n in rng.integers(0, (w, h) - size + 1))
        part = np.s_[y : y + size[1], x : x + size[0]]
        options = {"depth": {n: d for n, d in depth.items() if n in given}, "rect": (x, y, *size)}
        if rng.random() < 0.5:
            options["out"] = laid_out(rng, np.full((h, w), 77), rng.choice(TYPES[2:]))
        if m["reg_ee_enable"] and rng.random() < 0.5:
            names = rng.choice(m.stages, 2, replace=False)
            options["stages"] = {str(names[0]): laid_out(rng, np.full((h, w), 77), TYPES[5])}
            options["keep"] = [str(names[1])]
        try:
            r = m.run(**given, **options)
            whole = m.run(**given, depth=options["depth"], keep=r.stages)
        except cmodel.Error as error:  # more than a type holds: by samples beyond their depth alone
            assert "does not fit the type" in str(error), (SEED, number)
            assert any(p.min() < 0 or p.max() >> depth.get(n, 8) for n, p in given.items()), (SEED, number)
            continue
        assert np.array_equal(r.out, want[part]) and np.array_equal(whole.out, want), (SEED, number)
        if "out" in options:
            options["out"][part] = 77
            assert (options["out"] == 77).all(), (SEED, number)
        for name, samples in r.stages.items():
            assert np.array_equal(samples, whole.stages[name][part]), (SEED, number, name)
        if rng.random() < 0.3 and 2 * planes["cb"].shape[1] >= w:
            sources = {n: p if rng.random() < 0.5 else iter(p) for n, p in given.items()}
            rows = list(m.rows(**sources, size=(w, h), depth=options["depth"], keep=r.stages))
            assert np.array_equal([row.out for row in rows], want), (SEED, number)
            for name, samples in whole.stages.items():
                assert np.array_equal([row.stages[name] for row in rows], samples), (SEED, number, name)
        compared += 1
    assert compared > 900


def test_threads_give_what_one_thread_gives():
    cases = [draw_case(np.random.default_rng([SEED, 2000 + i])) for i in range(16)]
    models = [cmodel.Model(pipeline) for pipeline, *_ in cases]
    for m, (_, registers, *_) in zip(models, cases):
        m.registers.update(registers)

    def run(i):
        return [models[i].run(**cases[i][2], depth=cases[i][3]).out for _ in range(20)]

    alone = [run(i)[0] for i in range(16)]
    with concurrent.futures.ThreadPoolExecutor(4) as pool:
        for want, outs in zip(alone, pool.map(run, range(16))):
            assert all(np.array_equal(want, out) for out in outs)


# By argument: what it cannot be, beside a frame of 12x9 whose other planes are right.
PICTURE = np.zeros((9, 12), np.uint8)
NO_PLANE = [
    5, "y", [[1, 2], [3, 4]], PICTURE.astype(float), PICTURE.astype(np.int64), PICTURE.astype(bool),
    PICTURE.astype(">u2"), PICTURE.astype("datetime64[s]"), PICTURE.view("V1"), np.array(7, np.uint8), PICTURE[0],
    PICTURE[:0], PICTURE[:, :0], np.stack([PICTURE] * 4, 2), np.ma.array(PICTURE, mask=PICTURE),
    np.broadcast_to(np.uint8(1), (2, 1 << 33)), PICTURE.astype(object), np.zeros((3, 2, 2, 2), np.uint8),
]
WRONG_SIZE = [PICTURE[:5], PICTURE[:, ::3], np.broadcast_to(np.uint8(1), (1 << 20, 1 << 20))]
NO_OUTPUT = NO_PLANE + WRONG_SIZE + [np.broadcast_to(np.int32(1), (9, 12)), PICTURE.astype(np.int8)]
OVERLAPPING = np.lib.stride_tricks.as_strided(np.zeros(40, np.int32), (9, 12), (8, 4))
NO_NAME = [3, None, "", "reg_ee_total_gian", "totl_delta", "\0", "\ud800", b"y", "y" * 9999, 1.5]
NO_NUMBER = [None, "8", 8.0, 1 << 40, -1 << 70, [], 1j, np.float32(1)]
WRONG_RUNS = {
    **{name: NO_PLANE for name in ("y", "cb", "cr", "ynr", "mmap", "yfusion", "rgb")},
    "cb": NO_PLANE + WRONG_SIZE,
    "ynr": NO_PLANE + WRONG_SIZE,
    "mmap": NO_PLANE + WRONG_SIZE,
    "out": NO_OUTPUT + [OVERLAPPING],
    "stages": [5, [PICTURE], {"total_delta": PICTURE}, {"sharpened": OVERLAPPING}]
    + [{"sharpened": array} for array in NO_OUTPUT],
    "keep": [5, "sharpened", [None], [["y"]], ["totl_delta"], ["y"]],
    "depth": [5, [8], {"y": 7}, {"y": 13}, {"cb": 9}, {"yfusion": 12}, {"z": 8}, {5: 8}]
    + [{"y": bits} for bits in NO_NUMBER],
    "rect": [5, "rect", (1, 2, 3), (0, 0, 1, 1, 1), (0, 0, 13, 9), (-1, 0, 2, 2), (0, 0, 0, 1), (1 << 40, 0, 1, 1)]
    + [(0, 0, 1, n) for n in NO_NUMBER],
}


def draw_misuse(rng, m):
    """(what the text must name, a call that cannot be)."""
    pick = lambda values: values[rng.integers(len(values))]
    planes = {"y": PICTURE, "cb": PICTURE[:, ::2], "cr": PICTURE[:, ::2]}
    if rng.random() < 0.75:
        argument = pick(list(WRONG_RUNS))
        wrong = planes | {argument: pick(WRONG_RUNS[argument])}
        return argument, lambda: m.run(**wrong)
    name, number = pick(NO_NAME), pick(NO_NUMBER)
    calls = [
        ("register", lambda: m[name]),
        ("register", lambda: m.registers.update({"reg_ee_total_gain": 9, name: 1})),
        ("values", lambda: m.registers.update(name)),
        ("total_gain", lambda: m.registers.__setitem__("reg_ee_total_gain", number)),
        ("pipeline", lambda: cmodel.Model(name)),
        ("pipeline", lambda: cmodel.stages(name)),
        ("stage", lambda: cmodel.stage("classic", name)),
        ("instance", lambda: m.load_ini_text("", number if not isinstance(number, str) and number else 5)),
        ("instance", lambda: m.dump_ini("a\0b")),
        ("text", lambda: m.load_ini_text(number if number != "8" else b"")),
        ("path", lambda: m.load_ini(number if number != "8" else "a\0b")),
        ("copied", lambda: copy.deepcopy(m)),
        ("zoom", lambda: m.run(**planes).show(number)),
        ("cb", lambda: m.rows(y=PICTURE, cr=PICTURE)),
        ("rgb", lambda: list(m.rows(rgb=iter(NO_PLANE), size=(12, 9)))),
        ("size", lambda: m.rows(rgb=iter([]), size=(number, 9))),
        ("expected", lambda: cmodel.assert_same(NO_PLANE[rng.choice([0, 2, 3, 4])], PICTURE)),
    ]
    return pick(calls)


def test_wrong_calls_name_the_argument_and_change_nothing():
    m = cmodel.Model("pre_ee")
    m["reg_ee_texture_mode"] = 0
    before = m.dump_ini()
    for number in range(500):
        rng = np.random.default_rng([SEED, 3000 + number])
        argument, call = draw_misuse(rng, m)
        with pytest.raises((TypeError, ValueError, KeyError, cmodel.Error)) as caught:
            call()
        named = {"depth": "bits", "out": "output", "rgb": "y, cb, cr and red"}.get(argument, argument)
        assert argument in str(caught.value) or named in str(caught.value), (SEED, number)
        assert m.dump_ini() == before and not PICTURE.any(), (SEED, number)
    m.close()
    m.close()
    for call in (m.run, m.dump_ini, m.registers.reset, lambda: m["reg_ee_enable"]):
        with pytest.raises(cmodel.Error, match="closed"):
            call()


def test_the_first_difference_is_found_in_files_and_arrays(tmp_path):
    m = cmodel.Model("classic")
    rng = np.random.default_rng(SEED)
    r = m.run(rgb=rng.integers(0, 256, (20, 30, 3), np.uint8), keep=m.stages)
    for number, (name, samples) in enumerate(r.stages.items()):
        np.save(tmp_path / f"{number:02}_{name}.npy", samples)
    cmodel.assert_same(r.stages, tmp_path)
    wrong = {name: samples.copy() for name, samples in reversed(r.stages.items())}
    wrong["sharpened"][:] += 1
    wrong["total_delta"][7, 11] -= 1
    value = r.stages["total_delta"][7, 11]
    line = f"first difference: stage total_delta, x 11, y 7: expected {value}, actual {value - 1}\n"
    with pytest.raises(AssertionError, match=re.escape(line)):
        cmodel.assert_same(tmp_path, wrong)
    last = tmp_path / f"{number:02}_{name}.npy"
    last.write_bytes(last.read_bytes()[:-1])
    with pytest.raises(ValueError, match=name):
        cmodel.read_stages(tmp_path)


def test_a_pixel_is_explained_as_it_was_run():
    m = cmodel.Model("classic")
    m["reg_ee_total_gain"] = 99
    r = m.run(rgb=np.random.default_rng(SEED).integers(0, 256, (20, 30, 3), np.uint8), rect=(4, 3, 9, 5), keep=m.stages)
    m["reg_ee_total_gain"] = 0
    text = r.explain(7, 5)
    m.close()
    assert r.explain(7, 5) == text
    said = dict(re.findall(r"^(\w+) +(-?\d+)  ", text, re.M))
    assert {name: str(samples[2, 3]) for name, samples in r.stages.items()}.items() <= said.items()
    for x, y in ((30, 0), (0, -1), (1 << 40, 0), ("1", 0)):
        with pytest.raises((ValueError, TypeError), match="^x"):
            r.explain(x, y)


def test_the_page_does_what_it_says(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    (tmp_path / "settings").symlink_to(ROOT / "settings")
    page = (ROOT / "docs/python.md").read_text()
    names = {}
    shown = re.findall(r"```python\n(.*?)```\n(?:\n```text\n(.*?)```)?", page, re.S)
    assert len(shown) >= 5
    for code, text in shown:
        with contextlib.redirect_stdout(io.StringIO()) as printed:
            exec(code, names)
        assert printed.getvalue() == text, code
