"""Runs the works of works.py on every server in turn and writes down how they compare."""

import argparse
import json
import os
import subprocess
import sys
from pathlib import Path
from statistics import median
from typing import Any

import report
from servers import SCRAPE, VORRIM, Running, Server, machine, raise_descriptor_limit
from works import (CONNECTIONS, FILE_WORKS, FILES, FILES_QUICK, GROWS, GROWTH_SERVERS, WORKS, Bar,
                   Work)


ROOT = Path(__file__).resolve().parents[2]
SEARCHED_NAMES = 1_000_000
GROWTH_ROUNDS = 3
ATTEMPTS = 3  # a crowded machine may leave a short measurement empty


class Comparison:
    def __init__(self, options: argparse.Namespace):
        self.options = options
        self.build: Path = options.build
        self._missing: set[str] = set()
        self._tracker_lists: dict[str, str] = {}

    def load_command(self, arguments: tuple[str, ...], server: Running) -> list[str]:
        return [str(self.build / "vorrim-load"), *arguments, "--json", "--speak",
                server.server.speaks, "--port", str(server.port), "--server-pid",
                str(server.pid)]

    def load(self, arguments: tuple[str, ...], server: Running) -> dict[str, Any]:
        command = self.load_command(arguments, server)
        done = subprocess.run(command, capture_output=True, text=True, timeout=300)
        if not done.stdout:
            raise RuntimeError(f"{' '.join(command)}: {done.stderr.strip()}")
        return json.loads(done.stdout)

    def tracker_list(self, server: Server, arguments: tuple[str, ...]) -> str:
        if server.program != SCRAPE.program:
            return ""
        files = arguments[arguments.index("--files") + 1] if "--files" in arguments else "1"
        if files not in self._tracker_lists:
            done = subprocess.run(
                [str(self.build / "vorrim-load"), "tracker-list", "--files", files, "--json"],
                capture_output=True, text=True, check=True)
            self._tracker_lists[files] = "\n".join(json.loads(done.stdout)["notes"]) + "\n"
        return self._tracker_lists[files]

    def is_there(self, server: Server) -> bool:
        if server.is_there(self.build):
            return True
        if server.name not in self._missing:
            print(f"{server.name} is not installed: going on without it")
            self._missing.add(server.name)
        return False

    def measure(self, work: Work, server: Server) -> dict[str, float]:
        arguments = work.quick_arguments if self.options.quick else ()
        arguments = arguments or work.arguments
        if work.timed:
            arguments += ("-s", str(self.options.seconds))
        for _ in range(ATTEMPTS):
            with Running(server, self.build, self.tracker_list(server, arguments)) as running:
                answer = self.load(arguments, running)
            if answer["answers"]:
                return self.figures(work, server, answer)
        raise RuntimeError(f"{server.name} answers nothing: {work.title}")

    @staticmethod
    def figures(work: Work, server: Server, answer: dict[str, Any]) -> dict[str, float]:
        answers = answer["answers"]
        if answer["errors"]:
            print(f"{server.name}, {work.title}: {answer['errors']} errors")
        return {
            "cpu": 1e6 * answer["server_seconds"] / answers / work.scale,
            "memory": answer["resident_bytes"] / answers,
            "rate": answer["answers_per_second"] * work.scale,
            "p50": answer["latency"]["p50_us"],
            "p99": answer["latency"]["p99_us"],
        }

    def rounds(self, work: Work, count: int) -> dict[str, list[dict[str, float]]]:
        """Every server in turn, then all of them again: A B A B."""
        servers = [s for s in work.servers if self.is_there(s)]
        taken: dict[str, list[dict[str, float]]] = {s.name: [] for s in servers}
        for _ in range(count):
            for server in servers:
                taken[server.name].append(self.measure(work, server))
        return taken

    def compare(self, work: Work) -> dict[str, Any]:
        taken = self.rounds(work, 1 if work.once else self.options.rounds)
        figures = {name: [one[work.figure] for one in all_] for name, all_ in taken.items()}
        servers = {
            name: {**report.spread(figures[name]),
                   **{f"{extra}_median": median(one[extra] for one in all_)
                      for extra in ("rate", "p50", "p99")}}
            for name, all_ in taken.items()}
        of = work.bars[0].of.name
        bars = [judged for bar in work.bars if (judged := judge(bar, figures))]
        return {"key": work.key, "title": work.title, "unit": work.unit, "of": of,
                "servers": servers, "bars": bars}

    def connections(self) -> dict[str, list[dict[str, Any]]]:
        grown: dict[str, list[dict[str, Any]]] = {}
        for count in CONNECTIONS:
            work = Work("", f"{count:,} connections", "",
                        ("sources", "-c", str(count), "--files", "1000"), GROWTH_SERVERS, ())
            rounds = min(self.options.rounds, GROWTH_ROUNDS)
            for name, all_ in self.rounds(work, rounds).items():
                point = {figure: report.spread([one[figure] for one in all_])
                         for figure in ("cpu", "p50", "p99", "rate")}
                grown.setdefault(name, []).append({"connections": count, **point})
                print(f"  {count:>6,} connections  {name:18} "
                      f"{point['cpu']['median']:.2f} s per million, "
                      f"p50 {point['p50']['median']:.0f} us, p99 {point['p99']['median']:.0f} us")
        return grown

    def files(self) -> list[dict[str, Any]]:
        """What a file costs the server when it holds few and when it holds many."""
        sizes = []
        for files in FILES_QUICK if self.options.quick else FILES:
            held = ("--files", str(files))
            with Running(VORRIM, self.build) as running:
                hold = ("hold", *held, "--hold-seconds", "3600")
                with subprocess.Popen(self.load_command(hold, running), text=True,
                                      stdout=subprocess.DEVNULL, stderr=subprocess.PIPE) as holder:
                    assert holder.stderr
                    if holder.stderr.readline() != "holding\n":
                        raise RuntimeError(f"{files:,} files cannot be held")
                    works = {work.key: self.held_work(work, held, running) for work in FILE_WORKS}
                    holder.kill()
            sizes.append({"files": files, "works": works})
        return sizes

    def held_work(self, work: Work, held: tuple[str, ...], running: Running) -> dict[str, float]:
        figures = []
        for round_ in range(min(self.options.rounds, GROWTH_ROUNDS)):
            # New files every time; questions are about those that are held.
            seed = 1 if work.arguments[0] == "sources" else 2 + round_
            answer = self.load((*work.arguments, *held, "--held", "--seed", str(seed), "-s",
                                str(self.options.seconds)), running)
            figures.append(self.figures(work, VORRIM, answer)["cpu"])
        spread = report.spread(figures)
        print(f"  {held[1]:>10} files  {work.title:36} {report.number(spread['median'])} "
              f"{work.unit} ({report.number(spread['min'])} to {report.number(spread['max'])})")
        sys.stdout.flush()
        return spread

    def growth(self) -> dict[str, Any]:
        """The index by itself, against the search engines: a program of its own."""
        if self.options.growth:
            return json.loads(self.options.growth.read_text())
        program = self.build / "growth_bench"
        if not program.exists():
            print("growth_bench is not built: going on without it")
            return {}
        out = self.options.out / "growth.json"
        files = "100000" if self.options.quick else "1000000"
        # In huge pages, all engines alike: their page tables are not what is compared.
        subprocess.run([str(program), "--files", files, "--json", str(out)],
                       stdout=subprocess.DEVNULL, check=True,
                       env={**os.environ, "GLIBC_TUNABLES": "glibc.malloc.hugetlb=1"})
        grown: dict[str, Any] = json.loads(out.read_text())
        out.unlink()
        return grown


def judge(bar: Bar, figures: dict[str, list[float]]) -> dict[str, Any] | None:
    ours = figures.get(bar.of.name)
    against = [figures[s.name] for s in bar.against if s.name in figures]
    if not ours or (bar.against and not against):
        return None
    if bar.absolute is not None:
        return {"text": f"at most {bar.text}", "reached": median(ours) <= bar.absolute}
    ratio = report.spread([one / min(others) for one, *others in zip(ours, *against)])
    text = f"{bar.times:.3g} x {bar.text}" if bar.times != 1 else bar.text
    if bar.times == 1 / 3:
        text = bar.text
    return {"text": text, "ratio": ratio, "reached": ratio["median"] <= bar.times}


def file_works(sizes: list[dict[str, Any]]) -> list[dict[str, Any]]:
    """Rows of the table: the costs on the largest index, to those on the smallest."""
    few, many = sizes[0], sizes[-1]
    rows = []
    for work in FILE_WORKS:
        of = {f"{size['files']:,} files": size["works"][work.key] for size in sizes}
        ratio = many["works"][work.key]["median"] / few["works"][work.key]["median"]
        rows.append({"key": f"files_{work.key}", "unit": work.unit,
                     "title": f"{work.title}, {many['files']:,} files held",
                     "of": f"{many['files']:,} files", "servers": of,
                     "bars": [{"text": f"{GROWS:g} x {few['files']:,} files",
                               "reached": ratio <= GROWS,
                               "ratio": {"median": ratio, "min": ratio, "max": ratio}}]})
    return rows


def search_works(growth: dict[str, Any]) -> list[dict[str, Any]]:
    """Rows of the table for the searches, over as many names of the measured as come nearest."""
    if not growth.get("sizes"):
        return []
    size = min(growth["sizes"], key=lambda one: abs(one["files"] - SEARCHED_NAMES))
    by_class: dict[str, dict[str, dict[str, Any]]] = {}
    for search in size["searches"]:
        by_class.setdefault(search["class"], {})[search["engine"]] = search
    rows = []
    for name, engines in by_class.items():
        ours = engines.get("vorrim")
        if not ours:
            continue
        rivals = {n: e for n, e in engines.items()
                  if n in ("fts5", "redisearch", "xapian_disk", "xapian_memory")}
        for other, share, text in (("linear_whole", 0.1, "a tenth of the whole linear scan"),
                                   ("walk", 1.0, "no slower than walking")):
            if other in engines and (other == "linear_whole" or name.startswith("one_")):
                rivals, times, what = {other: engines[other]}, share, text
                break
        else:
            times, what = 0.5, "half of the best engine"
        bars = []
        for figure in ("p50_us", "p99_us") if rivals else ():
            ratio = report.spread([
                mine[figure] / min(other[figure] for other in others) for mine, *others in
                zip(ours["rounds"], *(e["rounds"] for e in rivals.values()))])
            bars.append({"text": f"{what}, {figure[:3]}", "reached": ratio["median"] <= times,
                         "ratio": ratio})
        title = f"search, {name.replace('_', ' ')}, {size['files']:,} names, p50"
        rows.append({"key": f"search_{name}", "title": title, "unit": "us", "of": "vorrim",
                     "servers": {n: {"median": e["p50_us"], "p99": e["p99_us"]}
                                 for n, e in engines.items()}, "bars": bars})
    for churn in size.get("churn", []):
        ratio = churn["ratio"]
        rows.append({"key": f"churn_{churn['class']}", "unit": "us", "of": "vorrim",
                     "title": f"search under churn, {churn['class'].replace('_', ' ')}, "
                              f"{churn['files_per_second']:,.0f} files a second, p99",
                     "servers": {"vorrim": {"median": churn["churn_p99_us"]},
                                 "quiet": {"median": churn["quiet_p99_us"]}},
                     "bars": [{"text": "3 x quiet", "reached": ratio <= 3,
                               "ratio": {"median": ratio, "min": ratio, "max": ratio}}]})
    return rows


def parse() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="bench/compare", description=__doc__)
    parser.add_argument("--build", type=Path, required=True, help=argparse.SUPPRESS)
    parser.add_argument("--out", type=Path, default=ROOT / "bench" / "results",
                        help="where results.json, table.md and the plots go")
    parser.add_argument("--rounds", type=int, help="of every work (5; quick: 2)")
    parser.add_argument("--seconds", type=float, help="of every measurement (2; quick: 0.5)")
    parser.add_argument("--only", action="append", metavar="WORK",
                        help="only works whose key starts so; " +
                        ", ".join(w.key for w in WORKS) + ", connections, files, search")
    parser.add_argument("--growth", type=Path, metavar="FILE",
                        help="take what growth_bench --json FILE has measured; do not run it")
    parser.add_argument("--quick", action="store_true", help="about two minutes")
    options = parser.parse_args()
    options.build = options.build.resolve()
    options.rounds = options.rounds or (2 if options.quick else 5)
    options.seconds = options.seconds or (0.5 if options.quick else 2.0)
    return options


def main() -> int:
    options = parse()
    raise_descriptor_limit()
    comparison = Comparison(options)

    def wanted(key: str) -> bool:
        return not options.only or any(key.startswith(o) for o in options.only)

    options.out.mkdir(parents=True, exist_ok=True)
    results: dict[str, Any] = {"machine": machine(), "rounds": options.rounds,
                               "seconds": options.seconds, "quick": options.quick, "works": []}
    for work in WORKS:
        if not wanted(work.key):
            continue
        row = comparison.compare(work)
        results["works"].append(row)
        print(f"{work.title} ({work.unit})")
        for name, figures in row["servers"].items():
            print(f"  {name:24} {report.number(figures['median']):>8}  "
                  f"({report.number(figures['min'])} to {report.number(figures['max'])}), "
                  f"{figures['rate_median']:,.0f} a second")
        for bar in row["bars"]:
            ratio = report.ratio_text(bar["ratio"]) if "ratio" in bar else ""
            print(f"    {'reached' if bar['reached'] else 'NOT REACHED'}: {bar['text']} {ratio}")
        sys.stdout.flush()
    if wanted("connections"):
        results["connections"] = comparison.connections()
    if wanted("files"):
        results["files"] = comparison.files()
        results["works"] += file_works(results["files"])
    if wanted("search"):
        results["growth"] = comparison.growth()
        results["works"] += search_works(results["growth"])
    report.write(options.out, results)
    if not options.quick and not options.only:
        report.show_in(ROOT / "README.md", report.table(results))
    print(f"written: {options.out.name}/results.json, table.md and plots")
    return 0


if __name__ == "__main__":
    sys.exit(main())
