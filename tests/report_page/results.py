"""Results with known numbers, in the form in which the daemon's samplers write them."""

import json
import os

START_NS, STEP_NS, READINGS = 16_000_000_000, 100_000_000, 41
HOSTILE_NAME = "\"><img src=x onerror=document.body.dataset.owned=1>&amp;\u202e"
HOSTILE_SYMBOL = "<script>document.body.dataset.owned=2</script>"
# Readings of the memory that are left out: 1.5 s to 2.9 s.
SILENT = range(15, 30)


def record(time_ns, index, text):
    size = len(text.encode())
    return f"TimeStamp:{time_ns}\nIndex:{index}\nDataLen:{size}\n{text}\n"


def times():
    return ((index, START_NS + index * STEP_NS) for index in range(READINGS))


def cpu_text():
    """Two cores: for two seconds one of them is 80 % in user code and the other idle, then both are
    50 % in the kernel."""
    text, cores = "", [[0] * 10, [0] * 10]
    for index, now in times():
        if 0 < index <= 20:
            cores[0][0] += 8
            cores[0][3] += 2
            cores[1][3] += 10
        elif index > 20:
            for core in cores:
                core[2] += 5
                core[3] += 5
        rows = [("cpu ", [sum(both) for both in zip(*cores)]), ("cpu0", cores[0]), ("cpu1", cores[1])]
        text += record(now, index, "".join(f"{name} {' '.join(map(str, row))}\n" for name, row in rows))
    return text


def memory_text():
    """8 GiB, of which 4 are free and one is cache."""
    reading = ("MemTotal:        8388608 kB\nMemFree:         4194304 kB\nMemAvailable:    5000000 kB\n"
               "Buffers:               0 kB\nCached:          1048576 kB\n")
    return "".join(record(now, index, reading) for index, now in times() if index not in SILENT)


def process_texts(pid, name, ticks, pages, readings=READINGS):
    """CPU and memory of a process that uses so many ticks in each of its readings."""
    cpu = memory = ""
    for index, now in list(times())[:readings]:
        fields = f"{pid} ({name}) S 1 1 1 0 -1 4194304 0 0 0 0 {index * ticks} 0 0 0 20 0 3 0 1000 0 0"
        cpu += record(now, index, f"{fields}{' 0' * 28}\nProcessName:{name}\ncpu  {index} 0 0 0 0 0 0 0 0 0\n")
        memory += record(now, index, f"{pages * 2} {pages} 100 10 0 50 0\nProcessName:{name}\n")
    return {f"data/{pid}-CpuUsage.data": cpu, f"data/{pid}-Memory.data": memory}


def profile_text():
    """100 samples: 60 in work, 20 in a function with a hostile name, 20 in the kernel."""
    stacks = ([["work", "main"]] * 60 + [[HOSTILE_SYMBOL, "main"]] * 20 +
              [["copy_page", "do_read", "main"]] * 20)
    text = ""
    for number, stack in enumerate(stacks):
        text += f"app 101/101 [000]  {16 + number / 100:.6f}:  10000000 cpu-clock: \n"
        for depth, name in enumerate(stack):
            module = "[kernel.kallsyms]" if name in ("copy_page", "do_read") else "/usr/bin/app"
            text += f"\t{0x1000 + 16 * depth:16x} {name}+0x10 ({module})\n"
        text += "\n"
    return text


def full_files():
    return {"data/SystemCpuUsage.data": cpu_text(), "data/Memory.data": memory_text(),
            **process_texts(101, "busy", 5, 25600), **process_texts(102, HOSTILE_NAME, 1, 2560, 21),
            "data/ai_ctrl_cpu.data": profile_text()}


def write_result(directory, files, missing=()):
    """`missing` names files that the manifest tells of and that are not there."""
    listed = []
    for name, text in files.items():
        path = os.path.join(directory, "device_0", name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        listed.append({"name": name, "bytes": len(text.encode()), "chunks": 1, "dataModule": 3})
    os.makedirs(os.path.join(directory, "device_0"), exist_ok=True)
    listed += [{"name": name, "bytes": 10, "chunks": 1, "dataModule": 3} for name in missing]
    device = {"device": 0, "directory": "device_0", "jobId": "job-1", "samplers": ["cpu", "memory"],
              "complete": True, "finishArrived": True, "failure": "", "bytes": 0, "chunks": 1,
              "files": listed, "refusedNames": {}, "sampleConfig": {}}
    manifest = {"format": 1, "tool": "tivctl 1.0.0", "state": "complete", "complete": True,
                "stoppedEarly": False, "started": "2026-11-21T03:14:07.123Z", "askedMs": 4000,
                "units": {"pageBytes": 4096, "ticksPerSecond": 100}, "devices": [device],
                "ended": "2026-11-21T03:14:11.123Z"}
    with open(os.path.join(directory, "manifest.json"), "w", encoding="utf-8") as file:
        json.dump(manifest, file)
