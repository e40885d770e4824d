#!/usr/bin/env python3
"""Measures numpy and pandas beside covariance_bench: the same shapes, on one thread.

    covariance.py RESULT.json

Prints nothing; the result has the form of Google Benchmark's, for tables.py.
"""
import json
import os
import pathlib
import statistics
import sys
import time

for variable in ("OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS", "MKL_NUM_THREADS"):
    os.environ[variable] = "1"

import numpy  # noqa: E402: its libraries read the environment when they are loaded
import pandas  # noqa: E402

CASES = 1_000_000
REPETITIONS = 5


def seconds(work):
    """The median time of a call, after one that is not counted."""
    work()
    times = []
    for _ in range(REPETITIONS):
        start = time.perf_counter()
        work()
        times.append(time.perf_counter() - start)
    return statistics.median(times)


def main():
    random = numpy.random.default_rng(1)
    runs = []

    def measure(row, who, columns, work):
        rate = columns * (columns + 1) / 2 * CASES / seconds(work)
        runs.append({"run_name": f"{row}/p:{columns}/{who}", "family_index": len(runs),
                     "aggregate_name": "median", "cell_rows": rate})

    for columns in (12, 50):
        # A row of memory for each column, as in the other program.
        values = random.uniform(-1, 1, (columns, CASES))
        weights = random.uniform(0.5, 1.5, CASES)
        measure("Weighted", "numpy", columns, lambda: numpy.cov(values, aweights=weights))
        values[random.uniform(size=values.shape) < 0.1] = numpy.nan
        frame = pandas.DataFrame(values.T, columns=[str(i) for i in range(columns)])
        measure("Pairwise", "pandas", columns, frame.cov)
    pathlib.Path(sys.argv[1]).write_text(json.dumps({"context": {}, "benchmarks": runs}))


main()
