#!/usr/bin/env python3
"""Times the Python module on a generated state: rova.routes() against rova.run(json=True) per
route, and rova.run(lines=True) against the program run through subprocess and read line by
line. Writes only inside its own temporary directory.

  PYTHONPATH=build/python bench/python-routes.py build/cli/rova build/snapshot/rova-gen [N]
"""

import os
import subprocess
import sys
import tempfile
import time

import rova


def best(f, runs=3):
    times = []
    for _ in range(runs):
        start = time.perf_counter()
        result = f()
        times.append(time.perf_counter() - start)
    return min(times), result


def main():
    program, generator = sys.argv[1], sys.argv[2]
    n = int(sys.argv[3]) if len(sys.argv) > 3 else 300000
    with tempfile.TemporaryDirectory() as tmp:
        path = os.path.join(tmp, "state.json")
        subprocess.run([generator, "--ipv4", str(n), "--ipv6", "0", "-o", path], check=True,
                       capture_output=True)
        state = rova.State.load(path)
        walk, count = best(lambda: sum(1 for _ in rova.routes(state)))
        doc_time, doc = best(lambda: rova.run(state, "show ip route", json=True), runs=1)
        listed = len(doc["routes"])
        del doc
        print(f"routes in the table: {count}, in the listing: {listed}")
        print(f"rova.routes():           {walk:.2f} s, {walk / count * 1e6:.2f} us per route")
        print(f"rova.run(json=True):     {doc_time:.2f} s, {doc_time / listed * 1e6:.2f} us per route")
        print(f"per route, json / routes: {doc_time / listed / (walk / count):.1f}x")

        lines_time, nlines = best(lambda: sum(1 for _ in rova.run(state, "show ip route",
                                                                   lines=True)))

        def through_subprocess():
            with subprocess.Popen([program, "--state", path, "show", "ip", "route"],
                                  stdout=subprocess.PIPE, text=True) as p:
                return sum(1 for _ in p.stdout)

        sub_time, sub_lines = best(through_subprocess)
        assert nlines == sub_lines, (nlines, sub_lines)
        print(f"lines=True:              {lines_time:.2f} s for {nlines} lines")
        print(f"subprocess, its lines:   {sub_time:.2f} s")
        print(f"lines / subprocess:      {lines_time / sub_time:.2f}x")


if __name__ == "__main__":
    main()
