#!/usr/bin/env python3
"""Turns the samples of `bench.exe --profile` into a profile: where the main thread was stopped
(module) and in which functions of the add-in, the simulated mapi32.dll and the benchmark (the
simulated Outlook) it was at the time, named from the build's debug information.
Usage: profile-report.py SAMPLES ADDIN_DLL MAPI32_DLL BENCH_EXE"""
import collections
import subprocess
import sys

samples_path, *modules = sys.argv[1:]
names = ["add-in", "mapi32 (simulated)", "bench (simulated Outlook)", "ole32", "kernelbase"]


def image_base(path):
    out = subprocess.run(["x86_64-w64-mingw32-objdump", "-p", path], capture_output=True,
                         text=True).stdout
    for line in out.splitlines():
        if line.startswith("ImageBase"):
            return int(line.split()[1], 16)
    return 0


samples = [line.split() for line in open(samples_path) if line.strip()]
wanted = collections.defaultdict(set)
for sample in samples:
    for frame in sample[1:]:
        module, rva = frame.split("!")
        wanted[int(module)].add(int(rva, 16))
function = {}
for module, rvas in wanted.items():
    base = image_base(modules[module])
    ordered = sorted(rvas)
    out = subprocess.run(["x86_64-w64-mingw32-addr2line", "-f", "-C", "-e", modules[module]] +
                         [hex(base + rva) for rva in ordered], capture_output=True,
                         text=True).stdout.splitlines()
    for i, rva in enumerate(ordered):
        name = out[2 * i] if 2 * i < len(out) else "?"
        function[(module, rva)] = name.split("(")[0][:70]

total = len(samples)
print(f"{total} samples (about 1 ms each)")
leaf = collections.Counter(sample[0] for sample in samples)
print("\nstopped in module:")
for name, count in leaf.most_common(12):
    print(f"  {count:6d} {100.0 * count / total:5.1f}%  {name}")

for module, title in enumerate(names):
    inclusive = collections.Counter()
    innermost = collections.Counter()
    for sample in samples:
        seen = []
        for frame in sample[1:]:
            m, rva = frame.split("!")
            if int(m) != module:
                continue
            name = function[(module, int(rva, 16))]
            if name not in seen:
                seen.append(name)
        for name in seen:
            inclusive[name] += 1
        if seen:
            innermost[(seen[0], sample[0])] += 1
    if not inclusive:
        continue
    print(f"\n{title}: samples with the function on the stack")
    for name, count in inclusive.most_common(25):
        print(f"  {count:6d} {100.0 * count / total:5.1f}%  {name}")
    print(f"\n{title}: innermost function of the module, and the module stopped in")
    for (name, stopped), count in innermost.most_common(25):
        print(f"  {count:6d} {100.0 * count / total:5.1f}%  {name}  [{stopped}]")

# The samples by step, each sample counted once, for the first step whose function is on its
# stack (innermost frames first within each module's list).
steps = [
    ("log: WriteConsoleW (three pieces a line)", 4, "WriteConsoleW"),
    ("log: the rest (WriteFile, formatting)", 0, "LogFile::"),
    ("staging folder names (tick, 10 ms waits)", 0, "CreateStagingFolder"),
    ("MSG file name", 0, "MakeMsgFileName"),
    ("simulated MAPI (mapi32.dll)", 1, ""),
    ("compound file (ole32)", 3, ""),
    ("hand-off XML", 0, "CXmlWriter"),
    ("connector launch", 0, "LaunchConnector"),
    ("add-in, other", 0, ""),
]
by_step = collections.Counter()
for sample in samples:
    frames = [frame.split("!") for frame in sample[1:]]
    names_on_stack = [(int(m), function[(int(m), int(rva, 16))]) for m, rva in frames]
    for title, module, needle in steps:
        if any(m == module and needle in name for m, name in names_on_stack):
            by_step[title] += 1
            break
    else:
        by_step["elsewhere (the simulated Outlook, the benchmark)"] += 1
print("\nby step:")
for title, count in by_step.most_common():
    print(f"  {count:6d} {100.0 * count / total:5.1f}%  {title}")
