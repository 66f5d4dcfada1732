#!/usr/bin/env python3
"""How long a report page of a long run takes to make, to open and to pan.

usage: bench/report_page.py [--samples N] [--tivctl PROGRAM] [--keep DIRECTORY]

Makes a result of N samples (1,000,000 without the option) in the form in which the daemon's samplers
write them: readings of 8 cores and of the memory every 100 ms, and of 100 processes. Then makes the
page and opens it in headless Chromium, which has to be installed. Needs about 300 bytes of disk a
sample.
"""

import argparse
import json
import os
import random
import subprocess
import sys
import tempfile
import time

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..")
sys.path.insert(0, os.path.join(ROOT, "tests", "report_page"))

from browser import Browser  # noqa: E402

CORES, PROCESSES, INTERVAL_NS, START_NS = 8, 100, 100_000_000, 5_000_000_000_000
FRAMES = 60


def record(time_ns, index, text):
    return f"TimeStamp:{time_ns}\nIndex:{index}\nDataLen:{len(text)}\n{text}\n"


def write_cpu(path, count):
    ticks = [[0] * 10 for _ in range(CORES)]
    with open(path, "w", encoding="ascii") as file:
        for index in range(count):
            for core in ticks:
                busy = random.randrange(11)
                core[0] += busy * 7 // 10
                core[2] += busy - busy * 7 // 10
                core[3] += 10 - busy
            rows = [[sum(column) for column in zip(*ticks)], *ticks]
            names = ["cpu ", *(f"cpu{core}" for core in range(CORES))]
            text = "".join(f"{name} {' '.join(map(str, row))}\n" for name, row in zip(names, rows))
            file.write(record(START_NS + index * INTERVAL_NS, index, text))


def write_memory(path, count):
    used = 4_000_000
    with open(path, "w", encoding="ascii") as file:
        for index in range(count):
            used = max(1_000_000, min(12_000_000, used + random.randrange(-50_000, 50_001)))
            text = (f"MemTotal:       16000000 kB\nMemFree:        {16_000_000 - used - 2_100_000} kB\n"
                    f"MemAvailable:   {16_000_000 - used} kB\nBuffers:        100000 kB\n"
                    f"Cached:         2000000 kB\nSwapTotal:      0 kB\nSwapFree:       0 kB\n")
            file.write(record(START_NS + index * INTERVAL_NS, index, text))


def write_process(directory, pid, count, step_ns):
    user, resident = 0, 1000 + pid
    with open(f"{directory}/{pid}-CpuUsage.data", "w", encoding="ascii") as cpu, \
            open(f"{directory}/{pid}-Memory.data", "w", encoding="ascii") as memory:
        for index in range(count):
            user += random.randrange(pid)
            resident = max(100, resident + random.randrange(-20, 21))
            now = START_NS + index * step_ns
            cpu.write(record(now, index, f"{pid} (worker {pid}) S 1 1 1 0 -1 4194304 0 0 0 0 {user} "
                                         f"{user // 3} 0 0 20 0 4 0 {pid} 0 0" + " 0" * 28 + "\n"
                                         f"ProcessName:worker {pid}\ncpu  {index} 0 0 0 0 0 0 0 0 0\n"))
            memory.write(record(now, index, f"{resident * 2} {resident} 100 10 0 50 0\n"
                                            f"ProcessName:worker {pid}\n"))


def make_result(directory, samples):
    data = os.path.join(directory, "device_0", "data")
    os.makedirs(data)
    system, each = samples * 3 // 10, max(1, samples * 4 // 10 // PROCESSES // 2)
    write_cpu(f"{data}/SystemCpuUsage.data", system)
    write_memory(f"{data}/Memory.data", system)
    for pid in range(1, PROCESSES + 1):
        write_process(data, pid, each, system * INTERVAL_NS // each)
    files = [{"name": f"data/{name}", "bytes": os.path.getsize(f"{data}/{name}"), "chunks": 1,
              "dataModule": 3} for name in sorted(os.listdir(data))]
    manifest = {"format": 1, "tool": "bench", "state": "complete", "complete": True,
                "units": {"pageBytes": 4096, "ticksPerSecond": 100},
                "devices": [{"device": 0, "directory": "device_0", "jobId": "bench",
                             "samplers": ["cpu", "memory", "processes"], "complete": True,
                             "finishArrived": True, "failure": "", "files": files}]}
    with open(f"{directory}/manifest.json", "w", encoding="ascii") as file:
        json.dump(manifest, file)
    return 2 * system + 2 * each * PROCESSES, sum(file["bytes"] for file in files)


# Pans the middle half of the run with every frame and tells how long each took from the request to
# the next one's chance, in milliseconds.
PAN = """(async () => {
  const key = name => document.body.dispatchEvent(new KeyboardEvent('keydown', {key: name, bubbles: true}));
  const frame = () => new Promise(done => requestAnimationFrame(done));
  for (const name of ['+', '+', '+']) { key(name); await frame(); await frame(); }
  const times = [];
  for (let i = 0; i < FRAMES; i++) {
    const start = performance.now();
    key(i % 20 < 10 ? 'ArrowRight' : 'ArrowLeft');
    await frame();
    await new Promise(done => setTimeout(done));
    times.push(performance.now() - start);
  }
  return times;
})()""".replace("FRAMES", str(FRAMES))


def open_and_pan(path):
    with Browser() as browser:
        browser.open("about:blank", wait=False)  # what starts with the first page is not the page's
        begin = time.monotonic()
        page = browser.open(f"file://{path}", width=1600, height=1000)
        page.settle()
        opened = time.monotonic() - begin
        before = page.run("document.getElementById('range').textContent")
        times = sorted(page.run(PAN))
        if page.collect().problems or page.run("document.getElementById('range').textContent") == before:
            sys.exit(f"the page did not pan: {page.problems}")
        heap = page.run("performance.memory.usedJSHeapSize")
        return opened, times[len(times) // 2], times[len(times) * 95 // 100], heap


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--samples", type=int, default=1_000_000)
    parser.add_argument("--tivctl", default=os.path.join(ROOT, "build/release/src/host/tivctl"))
    parser.add_argument("--keep", help="directory for the result and the page; not removed")
    options = parser.parse_args()
    random.seed(1)
    with tempfile.TemporaryDirectory(prefix="tiv_bench_") as temporary:
        directory = os.path.abspath(options.keep or temporary)
        result, page = os.path.join(directory, "result"), os.path.join(directory, "report.html")
        samples, size = make_result(result, options.samples)
        begin = time.monotonic()
        subprocess.run([options.tivctl, "report", result, "--output", page, "--quiet"], check=True)
        made = time.monotonic() - begin
        print(f"samples                {samples:>12,}  in {size / 1e6:,.0f} MB")
        print(f"making the page        {made:>12.2f} s  {size / 1e6 / made:,.0f} MB/s")
        print(f"size of the page       {os.path.getsize(page) / 1e6:>12.2f} MB")
        opened, median, slow, heap = open_and_pan(page)
        print(f"opening it             {opened:>12.2f} s")
        print(f"a frame while panning  {median:>12.1f} ms, 95 of 100 below {slow:.1f} ms")
        print(f"JavaScript heap        {heap / 1e6:>12.1f} MB")


if __name__ == "__main__":
    main()
