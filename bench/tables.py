#!/usr/bin/env python3
"""Writes the tables of docs/performance.md.

    tables.py DOCUMENT RESULT.json...

A result is named after its program, and so is the table it goes into. Tables without a result stay
as they are. Prints the aims that were missed.
"""
import json
import pathlib
import re
import sys

ENGINES = ["avx512", "avx2", "baseline"]

OTHERS = ["plain", "numpy", "pandas"]

# For each row of a table: the least ratio, whose rate, and what it is divided by. That is one of the
# others or "BLAS" in the same row, or the same engine's rate in another row.
AIMS = {
    "symmetric": {
        "SMatrixListwise/p:4": [(5, "avx512", "plain")],
        "SMatrixListwise/p:12": [(0.25, "avx512", "Limit"), (1.8, "avx512", "BLAS")],
        "SMatrixListwise/p:48": [(0.55, "avx512", "Limit"), (1.5, "avx512", "BLAS")],
        "SMatrixListwise/p:240": [
            (0.75, "avx512", "Limit"), (0.75, "avx2", "Limit"), (1.1, "avx512", "BLAS")],
        "SMatrixListwise/p:960": [
            (0.75, "avx512", "Limit"), (0.75, "avx2", "Limit"), (1.1, "avx512", "BLAS")],
    },
    "accumulators": {
        "NSMatrixListwise/p:24x216": [(0.85, "avx512", "SMatrixListwise/p:101")],
        "MatrixListwise/p:48": [(0.85, "avx512", "SMatrixListwise/p:48")],
        "DiscriminantMatrix/p:48": [(0.85, "avx512", "SMatrixListwise/p:48")],
        "DiscIndividualMatrix/p:48": [(0.85, "avx512", "SMatrixListwise/p:48")],
        "GroupSums/p:48": [(8, "avx512", "plain")],
    },
    "pairwise": {
        f"SMatrixPairwise/p:{p}/{missing}": aims
        for p in (48, 240)
        for missing, aims in {
            "complete": [(0.8, "avx512", f"SMatrixListwise/p:{p}")],
            "everywhere": [(4.5 / 71, "avx512", "Limit"), (20, "avx512", "plain")],
            "third": [(1.5, "avx512", f"SMatrixPairwise/p:{p}/everywhere")],
            "blocks": [(1.5, "avx512", f"SMatrixPairwise/p:{p}/everywhere")],
        }.items()
    },
    "merge": {"Merge/p:960": [(0.7, "avx512", "Bandwidth/cells:461280")]},
    "driver": {
        "Driver/p:48/threads:2": [(1.9, "avx512", "Driver/p:48/threads:1")],
        **{f"Table/p:48/forest/threads:{threads}":
           [(0.95, "avx512", f"Table/p:48/driver/threads:{threads}")] for threads in (1, 2)},
    },
    "fill": {f"AddColumns/p:{p}": [(1 / 1.5, "avx512", f"memcpy/p:{p}")] for p in (12, 48, 240)},
    "covariance": {
        "Weighted/p:12": [(3, "avx512", "numpy")],
        "Weighted/p:50": [(8, "avx512", "numpy")],
        "Pairwise/p:12": [(10, "avx512", "pandas")],
        "Pairwise/p:50": [(10, "avx512", "pandas")],
    },
}


def read(path, tables):
    """Adds a program's medians to its table: {row: {who: rate}}."""
    result = json.loads(path.read_text())
    program = path.name.split("_")[0].replace("blas", "symmetric")
    rows = tables.setdefault(program, {})
    for run in sorted(result["benchmarks"], key=lambda run: run["family_index"]):
        if run.get("aggregate_name") == "median":
            row, who = run["run_name"].removesuffix("/manual_time").rsplit("/", 1)
            rows.setdefault(row, {})[who] = run["cell_rows"]
    return result["context"].get("compiler")


def best_blas(rates):
    """The fastest BLAS of a row and its rate."""
    return max(((rate, who) for who, rate in rates.items() if who.startswith("BLAS")),
               default=(None, None))


def compare(rows, row, aim):
    """An aim's text and whether it is reached; None if it was not measured."""
    least, who, other = aim
    rate = rows[row].get(who)
    if other == "BLAS":
        counterpart = best_blas(rows[row])[0]
    else:
        counterpart = rows[row].get(other) or rows.get(other, {}).get(who)
    if rate is None or counterpart is None:
        return None
    ratio = rate / counterpart
    sign = "≥" if ratio >= least else "<"
    return f"{who} / {other} = {ratio:.3g} {sign} {least:.3g}", ratio >= least


def format_table(name, rows, head):
    """The table's lines; prints what was missed."""
    has_blas = any(best_blas(rates)[0] for rates in rows.values())
    columns = [who for who in (*ENGINES, *OTHERS) if any(who in rates for rates in rows.values())]
    titles = ["", *columns, *["BLAS"] * has_blas, "against the aim", "reached"]
    lines = [head, "", "| " + " | ".join(titles) + " |", "|---" * len(titles) + "|"]
    for row, rates in rows.items():
        cells = [f"{rates[who] / 1e9:.3g}" if who in rates else "" for who in columns]
        if has_blas:
            rate, who = best_blas(rates)
            cells.append(f"{rate / 1e9:.3g} ({who.removeprefix('BLAS ')})" if rate else "")
        aims = [a for a in (compare(rows, row, aim) for aim in AIMS[name].get(row, [])) if a]
        for text, is_reached in aims:
            if not is_reached:
                print(f"missed: {row}: {text}")
        cells.append("<br>".join(text for text, _ in aims))
        cells.append(("yes" if all(reached for _, reached in aims) else "no") if aims else "")
        lines.append("| " + " | ".join([row, *cells]) + " |")
    return lines


def main():
    document = pathlib.Path(sys.argv[1])
    tables = {}
    compilers = [read(pathlib.Path(path), tables) for path in sys.argv[2:]]
    compiler = next(filter(None, compilers))  # not of what has none
    processor = re.search(r"model name\s*: (.*)", pathlib.Path("/proc/cpuinfo").read_text())[1]
    text = document.read_text()
    for name, rows in tables.items():
        lines = format_table(name, rows, f"{processor}, {compiler}, 10⁹ a second:")
        text, count = re.subn(rf"(<!-- table: {name} -->\n).*?(?=<!-- end -->)",
                              lambda match: match[1] + "\n".join(lines) + "\n", text, flags=re.S)
        if count != 1:
            sys.exit(f"{document} has {count} tables {name}")
    document.write_text(text)


main()
