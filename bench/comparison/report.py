"""What is left of a run: results.json, table.md and the plots."""

import json
import subprocess
from pathlib import Path
from statistics import median
from typing import Any

MARKS = ("<!-- comparison: written by bench/compare -->", "<!-- end of the comparison -->")
COLOURS = ("#1f77b4", "#9ecae1", "#7f7f7f", "#bdbdbd", "#2ca02c", "#d62728", "#9467bd", "#8c564b")


def spread(values: list[float]) -> dict[str, float]:
    return {"median": median(values), "min": min(values), "max": max(values)}


def number(value: float) -> str:
    return f"{value:,.0f}" if value >= 100 else f"{value:.3g}"


def ratio_text(ratio: dict[str, float]) -> str:
    if ratio["min"] == ratio["max"]:
        return f"{ratio['median']:.2f}"
    return f"{ratio['median']:.2f} ({ratio['min']:.2f} to {ratio['max']:.2f})"


def table(results: dict[str, Any]) -> str:
    machine = results["machine"]
    lines = [
        f"{machine['processor']}, {machine['cores']} cores, {machine['memory_gib']} GiB, "
        f"Linux {machine['kernel']}, governor {machine['governor']}; generator and servers share "
        f"the cores. Medians of {results['rounds']} alternating rounds of "
        f"{results['seconds']:g} s; every server starts afresh for each. \"s per million\" is the "
        "processor time, user and system, that the server's process used for a million answers. A "
        "ratio is Vorrim's figure to the best of those named, round by round: median, and least "
        "to most.",
        "",
        "| work | Vorrim | the others | ratio | to reach | |",
        "|---|---|---|---|---|---|",
    ]
    for work in results["works"]:
        servers = dict(work["servers"])
        first = work["of"]
        ours = servers.pop(first, None)
        others = ", ".join(f"{name} {number(s['median'])}" for name, s in servers.items())
        if ours is None:
            continue
        for i, bar in enumerate(work["bars"]):
            head = ((work["title"], f"{number(ours['median'])} {work['unit']}", others)
                    if i == 0 else ("", "", ""))
            ratio = ratio_text(bar["ratio"]) if "ratio" in bar else ""
            lines.append("| " + " | ".join((*head, ratio, bar["text"],
                                            "yes" if bar["reached"] else "**no**")) + " |")
    return "\n".join(lines) + "\n"


def plot(folder: Path, name: str, commands: list[str], blocks: list[str]) -> None:
    """Draws folder/name.svg; the data blocks are $d0, $d1, ... of the commands."""
    script = ["set terminal svg noenhanced size 900,460 font 'sans-serif,12' background 'white'",
              f"set output '{folder / name}.svg'", "set grid ytics lc rgb '#dddddd'",
              "set key outside right top", "set bmargin 4"]
    for i, block in enumerate(blocks):
        script += [f"$d{i} << EOD", block, "EOD"]
    subprocess.run(["gnuplot"], input="\n".join(script + commands) + "\n", text=True, check=True)


def plot_works(folder: Path, results: dict[str, Any]) -> None:
    works = [w for w in results["works"] if w["key"].startswith("sources_")]
    names = list(dict.fromkeys(n for w in works for n in w["servers"]))
    if not works:
        return
    rows = []
    for work in works:
        cells = [str(work["servers"][n]["median"]) if n in work["servers"] else "NaN"
                 for n in names]
        title = work["title"].removeprefix("sources, ").replace(", ", "\\n")
        rows.append(f"\"{title}\" " + " ".join(cells))
    bars = [f"$d0 using {i + 2}:xtic(1) title \"{name}\" lc rgb '{COLOURS[i]}'"
            for i, name in enumerate(names)]
    plot(folder, "sources",
         ["set title 'Sources over TCP: processor seconds per million answers (less is better)'",
          "set style data histogram", "set style histogram clustered gap 1",
          "set style fill solid", "set logscale y", "set ylabel 'seconds, logarithmic'",
          "plot " + ", ".join(bars)], ["\n".join(rows)])


def plot_lines(folder: Path, name: str, title: str, x: str, y: str,
               series: dict[str, list[tuple[float, float]]]) -> None:
    series = {n: points for n, points in series.items() if points}
    if not series:
        return
    lines = [f"$d{i} using 1:2 with linespoints pt 7 lw 2 lc rgb '{COLOURS[i % len(COLOURS)]}' "
             f"title \"{n}\"" for i, n in enumerate(series)]
    plot(folder, name, [f"set title '{title}'", "set logscale x", f"set xlabel '{x}'",
                        f"set ylabel '{y}'", "set yrange [0:]", "set format x '%.0s%c'",
                        "plot " + ", ".join(lines)],
         ["\n".join(f"{a} {b}" for a, b in points) for points in series.values()])


def plot_growth(folder: Path, results: dict[str, Any]) -> None:
    connections = results.get("connections", {})
    for figure, title, unit in (
            ("cpu", "processor time", "seconds per million answers"),
            ("p99", "99th percentile of the answering time", "microseconds")):
        plot_lines(folder, f"connections_{figure}", f"Sources at depth 1: {title}", "connections",
                   unit, {name: [(p["connections"], p[figure]["median"]) for p in points]
                          for name, points in connections.items()})
    held = results.get("files", [])
    if held:
        plot_lines(folder, "files_server", "The server with so many files", "files",
                   "processor time: microseconds a file or request",
                   {key.replace("_16", ", depth 16"):
                    [(size["files"], size["works"][key]["median"]) for size in held]
                    for key in held[0]["works"]})
    sizes = results.get("growth", {}).get("sizes", [])
    if len(sizes) > 1:
        operations = list(dict.fromkeys(o for s in sizes for o in s["operations"]))
        plot_lines(folder, "files_operations", "Operations of the index", "files",
                   "microseconds a file or request",
                   {o.replace("_", " "): [(s["files"], s["operations"][o]["median"])
                        for s in sizes if o in s["operations"]] for o in operations})


def show_in(readme: Path, text: str) -> None:
    """Replaces what stands between the two marks."""
    whole = readme.read_text()
    before, begin, rest = whole.partition(MARKS[0])
    _, end, after = rest.partition(MARKS[1])
    if begin and end:
        readme.write_text(f"{before}{begin}\n{text}{end}{after}")


def write(folder: Path, results: dict[str, Any]) -> None:
    folder.mkdir(parents=True, exist_ok=True)
    (folder / "results.json").write_text(json.dumps(results, indent=1) + "\n")
    (folder / "table.md").write_text(table(results))
    plot_works(folder, results)
    plot_growth(folder, results)
