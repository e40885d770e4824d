#!/usr/bin/env python3
"""Writes the tables of docs/performance.md, or holds results against aims.

    tables.py write DOCUMENT RESULT.json...
    tables.py check AIMS.toml RESULT.json...

A result is named after its program, and so is the table it goes into. Tables without a result stay
as they are. `check` prints the aims that were missed or not measured, and ends with status 1 if any
was missed.
"""
import json
import pathlib
import re
import sys
import tomllib

ENGINES = ["avx512", "avx2", "baseline"]

OTHERS = ["plain", "numpy", "pandas"]

# What a row's rates are shown as shares of, for each table: another row's rate with the same
# engine, or another column of the row.
SHARES = {
    "symmetric": lambda row: "Limit",
    "accumulators": lambda row: "Limit",
    "pairwise": lambda row: "Limit",
    "merge": lambda row: "Bandwidth/cells:461280",
    "driver": lambda row: re.sub(r"\d+$", "1", row),
    "table": lambda row: "Limit",
    "fill": lambda row: re.sub(r"^\w+(/p:\d+).*", r"memcpy\1", row),
    "covariance": lambda row: "numpy" if row.startswith("Weighted/") else "pandas",
}


def read(path, tables, contexts):
    """Adds a program's medians to its table, {row: {who: rate}}, and what it says of itself."""
    result = json.loads(path.read_text())
    table = path.name.split("_")[0].replace("blas", "symmetric")
    rows = tables.setdefault(table, {})
    for run in sorted(result["benchmarks"], key=lambda run: run["family_index"]):
        if run.get("aggregate_name") == "median":
            row, who = run["run_name"].removesuffix("/manual_time").rsplit("/", 1)
            rows.setdefault(row, {})[who] = run["cell_rows"]
    if "compiler" in result["context"]:  # not of numpy and pandas
        contexts[table] = result["context"]


def best_blas(rates):
    """The fastest BLAS of a row and its rate."""
    return max(((rate, who) for who, rate in rates.items() if who.startswith("BLAS")),
               default=(None, None))


def ratio(rows, row, who, other):
    """A rate divided by the other's; None if one of them was not measured."""
    rates = rows.get(row, {})
    if other == "BLAS":
        counterpart = best_blas(rates)[0]
    else:
        counterpart = rates.get(other) or rows.get(other, {}).get(who)
    return rates[who] / counterpart if who in rates and counterpart else None


def cell(table, rows, row, who):
    """A rate in thousand millions, and in parentheses its share."""
    rates = rows[row]
    if who not in rates:
        return ""
    other = SHARES[table](row)
    share = ratio(rows, row, who, other) if who in ENGINES and other != row else None
    return f"{rates[who] / 1e9:.3g}" + ("" if share is None else f" ({share:.2f})")


def processor():
    """The processor as it describes itself: the name alone may be that of several kinds."""
    text = pathlib.Path("/proc/cpuinfo").read_text()
    name, family, model = (re.search(rf"^{field}\s*: (.*)$", text, re.M)[1]
                           for field in ("model name", "cpu family", "model"))
    return f"{name} (family {family}, model {model})"


def format_table(table, rows, context):
    """The table's lines."""
    has_blas = any(best_blas(rates)[0] for rates in rows.values())
    columns = [who for who in (*ENGINES, *OTHERS) if any(who in rates for rates in rows.values())]
    titles = ["", *columns, *["BLAS"] * has_blas]
    lines = [f"{processor()}, {context['compiler']} {context['flags']}, {context['date'][:10]}, "
             f"`scripts/bench {table}`; 10⁹ a second:",
             "", "| " + " | ".join(titles) + " |", "|---" * len(titles) + "|"]
    for row, rates in rows.items():
        cells = [cell(table, rows, row, who) for who in columns]
        if has_blas:
            rate, who = best_blas(rates)
            cells.append(f"{rate / 1e9:.3g}, {who.removeprefix('BLAS ')}" if rate else "")
        lines.append("| " + " | ".join([row, *cells]) + " |")
    return lines


def write(document, tables, contexts):
    """Puts each table into its place in the document."""
    text = document.read_text()
    for table, rows in tables.items():
        lines = format_table(table, rows, contexts[table])
        text, count = re.subn(rf"(<!-- table: {table} -->\n).*?(?=<!-- end -->)",
                              lambda match: match[1] + "\n".join(lines) + "\n", text, flags=re.S)
        if count != 1:
            sys.exit(f"{document} has {count} tables {table}")
    document.write_text(text)


def check(aims, tables):
    """Prints the aims of these tables that are missed or were not measured. Returns a status."""
    misses = 0
    for table, rows in tables.items():
        for row, texts in aims[table].items():
            for text in texts:
                who, least, other = re.fullmatch(r"(\w+) >= ([0-9.]+) (\S+)", text).groups()
                reached = ratio(rows, row, who, other)
                if reached is None:
                    print(f"not measured: {row}: {text}")
                elif reached < float(least):
                    print(f"missed: {row}: {text}, but {reached:.3g}")
                    misses += 1
    return 1 if misses else 0


def main():
    command, target = sys.argv[1], pathlib.Path(sys.argv[2])
    tables, contexts = {}, {}
    for path in sys.argv[3:]:
        read(pathlib.Path(path), tables, contexts)
    if command == "check":
        return check(tomllib.loads(target.read_text()), tables)
    return write(target, tables, contexts)


sys.exit(main())
